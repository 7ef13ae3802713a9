#include "evaluation/pattern_keys.h"

#include <algorithm>
#include <bit>

namespace tavrik::evaluation {

namespace {

// Folding makes a byte as frequent as the one that it becomes alike: a space as zero.
constexpr int FoldedRarity(uint8_t byte) {
    return std::min(Rarity(byte), Rarity(static_cast<uint8_t>(byte ^ kCaseBit)));
}

// Runs of one byte are everywhere: only strings that are runs should have such a gram, since a file soon has its answer
// to these.
constexpr int kRunCost = 64;

// Calls `visit` with every gram of the pattern.
template <typename Visit>
void ForGrams(const StringPattern &pattern, const Visit &visit) {
    for (std::size_t at = 0; at + kGramBytes <= pattern.length + 1; ++at) {
        Gram gram;
        gram.at = at;
        int open = 0;
        for (std::size_t i = 0; i < kGramBytes; ++i) {
            const std::size_t place = at + i;
            if (place >= pattern.length || pattern.care[place] == 0) {
                gram.open = static_cast<int>(i);
                ++open;
                continue;
            }
            const uint8_t value = pattern.value[place];
            // Programs have runs of one byte.
            gram.rarity += i > 0 && value == pattern.value[place - 1] ? 1 : FoldedRarity(value);
            gram.folded |= static_cast<uint32_t>(value | kCaseBit) << 8 * i;
        }
        if (gram.folded == (gram.folded & UINT8_MAX) * 0x01010101U)
            gram.rarity -= kRunCost;
        if (open <= 1)
            visit(gram);
    }
}

// A window of less, in bits, is at too many places of files.
constexpr int kLeastRarity = 16;

// How rare the window at `at` is, in bits; 0 when it has a wildcard or repeats one byte.
int WindowRarity(const StringPattern &pattern, std::size_t at) {
    int rarity = 0;
    bool repeats_one = true;
    for (std::size_t place = at; place < at + kWindowBytes; ++place) {
        if (pattern.care[place] == 0)
            return 0;
        const bool repeats = place > at && pattern.value[place] == pattern.value[place - 1];
        rarity += repeats ? 1 : FoldedRarity(pattern.value[place]);
        repeats_one = repeats_one && (repeats || place == at);
    }
    return repeats_one ? 0 : rarity;
}

// Calls `visit` with the alignment, the place and the rarity of each window that may be chosen.
template <typename Visit>
void ForWindows(const StringPattern &pattern, const Visit &visit) {
    for (std::size_t at = 0; at + kWindowBytes <= pattern.length; ++at)
        if (const int rarity = WindowRarity(pattern, at); rarity >= kLeastRarity)
            visit(at % kWindowStep, at, rarity);
}

constexpr int kMostCrowded = 4 * 32; // above it no worth of a window is negative

} // namespace

Check ChooseCheck(const StringPattern &pattern, std::size_t key_at, std::size_t length) {
    Check best;
    int best_rarity = 0;
    for (std::size_t at = 0; at + kGramBytes <= pattern.length; ++at) {
        Check check = {0, at, 0};
        int rarity = 0;
        for (std::size_t i = 0; i < kGramBytes; ++i) {
            const std::size_t place = at + i;
            if ((place >= key_at && place < key_at + length) || pattern.care[place] == 0)
                continue;
            rarity += Rarity(pattern.value[place]);
            check.bytes = static_cast<uint8_t>(check.bytes | 1U << i);
            check.folded |= static_cast<uint32_t>(pattern.value[place] | kCaseBit) << 8 * i;
        }
        if (rarity > best_rarity) {
            best_rarity = rarity;
            best = check;
        }
    }
    return best;
}

void KeyChooser::Add(const StringPattern &pattern) {
    ForGrams(pattern, [&](const Gram &gram) { ++counts_[PlaceOf(gram)]; });
}

std::optional<Gram> KeyChooser::ChooseGram(const StringPattern &pattern) {
    std::optional<Gram> best;
    ForGrams(pattern, [&](const Gram &gram) {
        if (!best || IsBetter(gram, *best))
            best = gram;
    });
    if (best)
        ++filed_[PlaceOf(*best)];
    return best;
}

std::optional<AlignedWindows> KeyChooser::ChooseWindows(const StringPattern &pattern) {
    AlignedWindows windows = {};
    std::array<int, kWindowStep> best = {};
    ForWindows(pattern, [&](std::size_t alignment, std::size_t at, int rarity) {
        const auto crowd = static_cast<int>(std::bit_width(in_windows_[PlaceOf(pattern, at)]));
        if (const int worth = rarity - 4 * crowd + kMostCrowded; worth > best[alignment]) {
            best[alignment] = worth;
            windows[alignment] = at;
        }
    });
    if (std::ranges::find(best, 0) != best.end())
        return std::nullopt;
    for (const std::size_t at : windows)
        ++in_windows_[PlaceOf(pattern, at)];
    return windows;
}

bool KeyChooser::HasWindows(const StringPattern &pattern) {
    std::array<bool, kWindowStep> has = {};
    ForWindows(pattern, [&](std::size_t alignment, std::size_t, int) { has[alignment] = true; });
    return std::ranges::find(has, false) == has.end();
}

// A gram with an open byte means many and is only taken for want of another.
bool KeyChooser::IsBetter(const Gram &gram, const Gram &other) const {
    const bool is_open = gram.open >= 0;
    const bool other_is_open = other.open >= 0;
    return is_open == other_is_open ? Worth(gram) > Worth(other) : other_is_open;
}

// What filing a pattern under the gram costs is how often the gram is met, in files as in other patterns, times how
// many patterns are then compared. The smaller, the larger is this number, in bits.
int KeyChooser::Worth(const Gram &gram) const {
    const std::size_t place = PlaceOf(gram);
    return gram.rarity - static_cast<int>(std::bit_width(counts_[place])) -
           2 * static_cast<int>(std::bit_width(filed_[place]));
}

} // namespace tavrik::evaluation
