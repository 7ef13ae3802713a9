#include "host/evaluation/string_search.h"

#include <algorithm>
#include <array>

#include "rulelang/model.h"

namespace tavrik::host {

namespace {

// A string as a pattern: for each byte that it spans in the file, which bits count and what they are.
struct Pattern {
    std::array<uint8_t, 2 *rules::kMaxStringLength> value = {};
    std::array<uint8_t, 2 *rules::kMaxStringLength> care = {}; // 0: any byte; else compared after `fold`
    std::array<bool, 2 *rules::kMaxStringLength> fold = {};
    std::size_t length = 0;
};

uint8_t Lower(uint8_t c) {
    return c >= 'A' && c <= 'Z' ? static_cast<uint8_t>(c + ('a' - 'A')) : c;
}

Pattern MakePattern(const StringFeature &string) {
    Pattern pattern;
    const bool wide = (string.param_e & rules::kStringWide) != 0;
    const bool nocase = (string.param_e & rules::kStringNoCase) != 0;
    for (std::size_t i = 0; i < string.length; ++i) {
        const bool any = (string.mask[i / 8] >> i % 8 & 1) != 0;
        pattern.care[pattern.length] = any ? 0 : 0xFF;
        pattern.fold[pattern.length] = nocase;
        pattern.value[pattern.length++] = nocase ? Lower(string.bytes[i]) : string.bytes[i];
        if (wide)
            pattern.care[pattern.length++] = 0xFF;
    }
    return pattern;
}

bool StandsAt(const Pattern &pattern, const uint8_t *at) {
    for (std::size_t i = 0; i < pattern.length; ++i)
        if (pattern.care[i] != 0 && pattern.value[i] != (pattern.fold[i] ? Lower(at[i]) : at[i]))
            return false;
    return true;
}

} // namespace

bool IsStringPresent(FileBytes &bytes, Region region, const StringFeature &string) {
    const Pattern pattern = MakePattern(string);
    if (pattern.length > region.length)
        return false;
    // Positions that count, from the region's start.
    const uint64_t last = region.length - pattern.length;
    uint64_t low = string.param_b > string.param_f ? string.param_b - string.param_f : 0;
    uint64_t high = string.param_c == 0 ? last : uint64_t{string.param_b} + string.param_c + string.param_f - 1;
    high = std::min(high, last);
    if (low > high)
        return false;
    if (rules::FromEnd(string.string_kind)) {
        std::swap(low, high);
        low = last - low;
        high = last - high;
    }
    bool found = false;
    bytes.ForPieces({region.offset + low, high - low + pattern.length}, pattern.length - 1,
                    [&](std::span<const uint8_t> piece, uint64_t) {
                        for (std::size_t i = 0; i + pattern.length <= piece.size() && !found; ++i)
                            found = StandsAt(pattern, piece.data() + i);
                        return !found;
                    });
    return found;
}

} // namespace tavrik::host
