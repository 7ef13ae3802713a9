/* What a string is filed under in the search for many. */
#ifndef TAVRIK_EVALUATION_PATTERN_KEYS_H
#define TAVRIK_EVALUATION_PATTERN_KEYS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "evaluation/gram_search.h"
#include "evaluation/string_pattern.h"
#include "evaluation/window_search.h"

namespace tavrik::evaluation {

/** A gram of a pattern. At most one of its bytes is open: a wildcard or after the pattern's end. */
struct Gram {
    std::size_t at = 0;
    uint32_t folded = 0; // 0 in place of the open byte
    int open = -1;       // which byte is open; -1: none
    int rarity = 0;      // bits
};

/** A window of a pattern for each of the four alignments that its start may have. */
using AlignedWindows = std::array<std::size_t, kWindowStep>; // where they begin

/** Four bytes of a pattern that are compared before the others. */
struct Check {
    uint32_t folded = 0; // 0 for bytes that do not count
    std::size_t at = 0;
    uint8_t bytes = 0; // a bit for each that counts
};

/** The bytes that count of a check, by its `bytes`. */
inline constexpr auto kCheckMasks = [] {
    std::array<uint32_t, 1U << kGramBytes> masks = {};
    for (uint32_t bytes = 0; bytes < masks.size(); ++bytes)
        for (unsigned i = 0; i < kGramBytes; ++i)
            masks[bytes] |= (bytes >> i & 1U) != 0 ? uint32_t{0xFF} << 8 * i : 0;
    return masks;
}();

/** The rarest four bytes outside the gram or window of `length` bytes at `key_at`. */
Check ChooseCheck(const StringPattern &pattern, std::size_t key_at, std::size_t length);

/** The buckets go by another hash than the filter before them, which so errs for other grams. */
constexpr uint32_t KeyHash(uint32_t gram) {
    return gram * 0xC2B2AE35U;
}

/** Chooses what patterns are filed under: how many have a gram, and which ones are filed already, counts. */
class KeyChooser {
public:
    /** Counts the grams of a pattern; all patterns are added before the first is asked for. */
    void Add(const StringPattern &pattern);

    /** Nothing when the pattern has no gram. */
    std::optional<Gram> ChooseGram(const StringPattern &pattern);

    /** Nothing when the pattern is too short for a window at each alignment, or has only windows that many files have.
     */
    std::optional<AlignedWindows> ChooseWindows(const StringPattern &pattern);

    /** Whether ChooseWindows finds some. */
    static bool HasWindows(const StringPattern &pattern);

private:
    bool IsBetter(const Gram &gram, const Gram &other) const;
    int Worth(const Gram &gram) const;
    static std::size_t PlaceOf(const Gram &gram) { return KeyHash(gram.folded) >> kShift; }
    static std::size_t PlaceOf(const StringPattern &pattern, std::size_t window) {
        return KeyHash(WindowAt(&pattern.value[window])) >> kShift;
    }

    static constexpr unsigned kShift = 15; // grams of one hash are counted together, which is near enough
    std::vector<uint32_t> counts_ = std::vector<uint32_t>((UINT32_MAX >> kShift) + 1);
    std::vector<uint32_t> filed_ = std::vector<uint32_t>((UINT32_MAX >> kShift) + 1);
    std::vector<uint32_t> in_windows_ = std::vector<uint32_t>((UINT32_MAX >> kShift) + 1); // patterns filed there
};

} // namespace tavrik::evaluation

#endif
