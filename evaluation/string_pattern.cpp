#include "evaluation/string_pattern.h"

#include <algorithm>

namespace tavrik::evaluation {

namespace {

constexpr bool IsLetter(uint8_t byte) {
    const auto lower = static_cast<uint8_t>(byte | kCaseBit);
    return lower >= 'a' && lower <= 'z';
}

} // namespace

StringPattern::StringPattern(const StringFeature &string) {
    const bool is_wide = (string.param_e & rules::kStringWide) != 0;
    const bool ignores_case = (string.param_e & rules::kStringNoCase) != 0;
    for (std::size_t i = 0; i < string.length; ++i) {
        const uint8_t byte = string.bytes[i];
        const bool is_wildcard = (string.mask[i / 8] >> i % 8 & 1) != 0;
        care[length] = is_wildcard                      ? uint8_t{0}
                       : ignores_case && IsLetter(byte) ? static_cast<uint8_t>(~kCaseBit)
                                                        : uint8_t{0xFF};
        value[length] = byte & care[length];
        ++length;
        if (is_wide) {
            care[length] = 0xFF;
            value[length] = 0;
            ++length;
        }
    }
}

Starts CountingStarts(const StringFeature &string, uint64_t length, uint64_t region_length) {
    if (length > region_length)
        return {};
    const uint64_t last = region_length - length; // the last start, and the largest position
    const uint64_t lowest = string.param_b - std::min<uint64_t>(string.param_b, string.param_f);
    if (lowest > last)
        return {};
    uint64_t highest = last;
    if (string.param_c != 0)
        highest = std::min(last, uint64_t{string.param_b} + string.param_c + string.param_f - 1);
    return rules::FromEnd(string.string_kind) ? Starts{last - highest, last - lowest + 1} : Starts{lowest, highest + 1};
}

} // namespace tavrik::evaluation
