/* A quick and exact answer to "can one of these markers lie wholly inside this block?". */
#ifndef TAVRIK2_LOCATORS_SCANS_MARKER_FILTER_H
#define TAVRIK2_LOCATORS_SCANS_MARKER_FILTER_H

#include <cstddef>
#include <cstdint>

#include "tavrik2/bytes.h"
#include "tavrik2/locators/markers.h"

namespace tavrik2 {

/** A marker of 7 bytes or more covers, wherever it lies in a block, one of the block's 4-byte words at a multiple of 4:
 * the word at 0, 1, 2 or 3 bytes into the marker. So a block none of whose words is one of those four, for any marker,
 * holds no marker. The words are looked up by hash in a bitmap of 8 KB, and exactly only where their bit is set. */
template <std::size_t MarkerCount>
class MarkerFilter {
public:
    template <std::size_t... Lengths>
    consteval explicit MarkerFilter(const uint8_t (&...markers)[Lengths]) {
        static_assert(sizeof...(Lengths) == MarkerCount);
        static_assert(((Lengths >= kWordSize + kShifts - 1) && ...), "a shorter marker could fall between two words");
        (Add(markers), ...);
    }

    /** True when the block, of a length that is a multiple of 4, may hold a marker; false only when it holds none. */
    bool MayHoldMarker(const uint8_t *block, uint32_t length) const {
        for (uint32_t place = 0; place < length; place += kWordSize) {
            const uint32_t word = LoadU32(block + place);
            const uint32_t hash = Hash(word);
            if ((bitmap_[hash / 64] >> (hash % 64) & 1) != 0 && IsMarkerWord(word))
                return true;
        }
        return false;
    }

private:
    static constexpr std::size_t kWordSize = 4;
    static constexpr std::size_t kShifts = 4; // the places at which a word may begin within a marker
    static constexpr std::size_t kWordCount = kShifts * MarkerCount;

    // The upper 16 bits of a multiplicative hash.
    static constexpr uint32_t Hash(uint32_t word) { return word * 0x9E3779B1u >> 16; }

    consteval void Add(const uint8_t *marker) {
        for (std::size_t shift = 0; shift < kShifts; ++shift) {
            const uint32_t word = MarkerWord(marker + shift);
            words_[used_++] = word;
            bitmap_[Hash(word) / 64] |= uint64_t{1} << (Hash(word) % 64);
        }
    }

    bool IsMarkerWord(uint32_t word) const {
        for (const uint32_t marker_word : words_) {
            if (word == marker_word)
                return true;
        }
        return false;
    }

    uint64_t bitmap_[0x10000 / 64] = {};
    uint32_t words_[kWordCount] = {};
    std::size_t used_ = 0;
};

template <std::size_t... Lengths>
MarkerFilter(const uint8_t (&...markers)[Lengths]) -> MarkerFilter<sizeof...(Lengths)>;

} // namespace tavrik2

#endif
