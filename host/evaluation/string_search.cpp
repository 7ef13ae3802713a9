#include "host/evaluation/string_search.h"

#include <algorithm>

#include "host/evaluation/string_pattern.h"

namespace tavrik::host {

namespace {

// Places up to this size in bytes are read through the cache of pages; larger ones piece by piece.
constexpr std::size_t kSmallPlace = 1024;

struct Stretch {
    std::size_t first = 0;
    std::size_t length = 0;
};

// The longest stretch of a pattern without wildcards.
Stretch LongestStretch(const StringPattern &pattern) {
    Stretch longest;
    Stretch current;
    for (std::size_t i = 0; i < pattern.length; ++i) {
        current = pattern.care[i] == 0 ? Stretch{i + 1, 0} : Stretch{current.first, current.length + 1};
        if (current.length > longest.length)
            longest = current;
    }
    return longest;
}

// The stretch without wildcards that the string's anchor points to.
Stretch AnchoredStretch(const StringFeature &string, const StringPattern &pattern) {
    Stretch stretch;
    stretch.first = string.param_a * (pattern.length / string.length);
    while (stretch.first + stretch.length < pattern.length && pattern.care[stretch.first + stretch.length] != 0)
        ++stretch.length;
    return stretch.length > 0 ? stretch : LongestStretch(pattern);
}

// Searches by the last byte of the stretch (Horspool): the file's byte there tells how far to move on. Without a
// stretch it moves on by one.
class PatternSearch {
public:
    PatternSearch(const StringPattern &pattern, Stretch stretch) : pattern_(pattern) {
        if (stretch.length == 0) {
            moves_.fill(1);
            return;
        }
        last_ = stretch.first + stretch.length - 1;
        moves_.fill(Move(stretch.length));
        for (std::size_t i = stretch.first; i < last_; ++i) {
            const uint8_t value = pattern.value[i];
            moves_[value] = Move(last_ - i);
            moves_[static_cast<uint8_t>(value | static_cast<uint8_t>(~pattern.care[i]))] = Move(last_ - i);
        }
    }

    bool IsIn(std::span<const uint8_t> bytes) const {
        for (std::size_t at = 0; at + pattern_.length <= bytes.size(); at += moves_[bytes[at + last_]])
            if (pattern_.IsAt(&bytes[at]))
                return true;
        return false;
    }

private:
    static uint8_t Move(std::size_t distance) { return static_cast<uint8_t>(std::min<std::size_t>(distance, 255)); }

    const StringPattern &pattern_;
    std::size_t last_ = 0;
    std::array<uint8_t, 256> moves_;
};

bool StandsPlainlyAt(FileBytes &bytes, uint64_t offset, const StringFeature &string) {
    const auto lower = [](uint8_t byte) { return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte; };
    const bool ignores_case = (string.param_e & rules::kStringNoCase) != 0;
    const bool is_wide = (string.param_e & rules::kStringWide) != 0;
    for (std::size_t i = 0; i < string.length; ++i) {
        const std::optional<uint8_t> byte = bytes.Get<uint8_t>(offset++);
        const bool is_wildcard = (string.mask[i / 8] >> i % 8 & 1) != 0;
        if (!byte ||
            !(is_wildcard || *byte == string.bytes[i] || (ignores_case && lower(*byte) == lower(string.bytes[i]))))
            return false;
        if (is_wide && bytes.Get<uint8_t>(offset++) != uint8_t{0})
            return false;
    }
    return true;
}

} // namespace

bool IsStringPresent(FileBytes &bytes, Region region, const StringFeature &string) {
    const StringPattern pattern(string);
    const Starts starts = CountingStarts(string, pattern.length, region.length);
    if (starts.IsEmpty())
        return false;
    const Region place = {region.offset + starts.first, starts.end - starts.first - 1 + pattern.length};
    if (place.length == pattern.length) {
        uint8_t there[kLongestPattern];
        return bytes.Read(place.offset, there, pattern.length) && pattern.IsAt(there);
    }
    const PatternSearch search(pattern, AnchoredStretch(string, pattern));
    if (place.length <= kSmallPlace) {
        uint8_t there[kSmallPlace];
        const auto length = static_cast<std::size_t>(place.length);
        return bytes.Read(place.offset, there, length) && search.IsIn({there, length});
    }
    bool is_found = false;
    bytes.ForPieces(place, pattern.length - 1, [&](std::span<const uint8_t> piece, uint64_t) {
        is_found = search.IsIn(piece);
        return !is_found;
    });
    return is_found;
}

bool IsStringPresentPlainly(FileBytes &bytes, Region region, const StringFeature &string) {
    const uint64_t length = uint64_t{string.length} * ((string.param_e & rules::kStringWide) != 0 ? 2 : 1);
    for (uint64_t start = 0; start + length <= region.length; ++start) {
        const uint64_t position = rules::FromEnd(string.string_kind) ? region.length - length - start : start;
        const bool is_early = position + string.param_f < string.param_b;
        const bool is_late =
            string.param_c != 0 && position >= uint64_t{string.param_b} + string.param_c + string.param_f;
        if (!is_early && !is_late && StandsPlainlyAt(bytes, region.offset + start, string))
            return true;
    }
    return false;
}

} // namespace tavrik::host
