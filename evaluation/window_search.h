/* The first step of the search for many long strings: the places of a block where one of their windows may be. */
#ifndef TAVRIK_EVALUATION_WINDOW_SEARCH_H
#define TAVRIK_EVALUATION_WINDOW_SEARCH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "evaluation/gram_hash.h"
#include "evaluation/gram_search.h"

namespace tavrik::evaluation {

/** A window is eight bytes. Only windows at every fourth place of a block are looked at, so that a string is filed
 * under one window for each of its four alignments. */
inline constexpr std::size_t kWindowBytes = 8;
inline constexpr std::size_t kWindowStep = 4;

/** A number for the window that begins at `bytes`: equal for equal windows, case not counting as in grams. */
inline uint32_t WindowAt(const uint8_t *bytes) {
    return GramAt(bytes) * kGramMultiplier + GramAt(bytes + kGramBytes) * kSecondMultiplier;
}

/** A search for many windows in blocks; it finds some other windows too. Immutable. */
class WindowSearch {
public:
    static constexpr std::size_t kReadAfter = 7; // bytes after a block that are read too

    explicit WindowSearch(std::span<const uint32_t> windows);

    /** Fills `places` with the places of a block, as long as GramSearch's, where a window begins, and some others, in
     * any order; returns how many. */
    std::size_t Find(std::span<const uint8_t> block, GramSearch::Places &places) const;

    /** The same without the processor's wide instructions, which GramSearch::IsWide tells of. */
    std::size_t FindPortably(std::span<const uint8_t> block, GramSearch::Places &places) const;

    /** The memory that the object holds, in bytes. */
    std::size_t MemorySize() const { return words_.capacity() * sizeof(words_[0]); }

private:
    std::size_t FindWidely(std::span<const uint8_t> block, GramSearch::Places &places) const;

    unsigned shift_; // from a window's number to its bit
    std::vector<uint32_t> words_;
};

} // namespace tavrik::evaluation

#endif
