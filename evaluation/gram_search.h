/* The first step of the search for many strings: the places of a block where a gram may be. */
#ifndef TAVRIK_EVALUATION_GRAM_SEARCH_H
#define TAVRIK_EVALUATION_GRAM_SEARCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace tavrik::evaluation {

/** A gram is four bytes of a file with the bits of kGramFold set: case does not count, which makes some other bytes
 * alike too. */
inline constexpr std::size_t kGramBytes = 4;
inline constexpr uint32_t kGramFold = 0x20202020;

/** The gram that begins at `bytes`. */
inline uint32_t GramAt(const uint8_t *bytes) {
    uint32_t gram;
    std::memcpy(&gram, bytes, sizeof(gram));
    return gram | kGramFold;
}

/** A search for many grams in blocks. It has a bit for each value of a hash's upper bits, and finds some other grams
 * too. Immutable, so that many threads can share one. */
class GramSearch {
public:
    static constexpr std::size_t kStride = 32;         // a block's length is a multiple of it, in bytes
    static constexpr std::size_t kLongestBlock = 4096; // bytes
    static constexpr std::size_t kReadAfter = 3;       // bytes after a block that are read too

    using Places = std::array<uint16_t, kLongestBlock + 1>;

    explicit GramSearch(std::span<const uint32_t> grams);

    /** Fills `places` with the places of a block where a gram begins, and some others, in any order; returns how many.
     * `skips_zeros`: places of zero bytes may be left out. */
    std::size_t Find(std::span<const uint8_t> block, bool skips_zeros, Places &places) const;

    /** The same without the processor's wide instructions. */
    std::size_t FindPortably(std::span<const uint8_t> block, bool skips_zeros, Places &places) const;

    /** Whether `Find` uses wide instructions on this processor. */
    static bool IsWide();

    /** The memory that the object holds, in bytes. */
    std::size_t MemorySize() const { return words_.capacity() * sizeof(words_[0]); }

private:
    std::size_t FindWidely(std::span<const uint8_t> block, bool skips_zeros, Places &places) const;
    uint32_t PlaceOf(uint32_t gram) const;

    unsigned shift_; // from a hash to its bit
    std::vector<uint32_t> words_;
};

} // namespace tavrik::evaluation

#endif
