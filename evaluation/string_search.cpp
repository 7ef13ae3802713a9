#include "evaluation/string_search.h"

#include <algorithm>

#include "base/characters.h"
#include "evaluation/string_pattern.h"

namespace tavrik::evaluation {

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

// Searches by the last byte of the stretch (Horspool): the file's byte there tells how far to move on. For a short
// stretch the C library's search for the pattern's rarest byte is faster. Without either it moves on by one.
class PatternSearch {
public:
    PatternSearch(const StringPattern &pattern, Stretch stretch) : pattern_(pattern) {
        for (std::size_t i = 0; i < pattern.length && stretch.length < kShortStretch; ++i)
            if (pattern.care[i] == 0xFF && (!has_rarest_ || Rarity(pattern.value[i]) > Rarity(pattern.value[key_]))) {
                has_rarest_ = true;
                key_ = i;
            }
        if (has_rarest_)
            return;
        moves_.fill(Move(std::max<std::size_t>(stretch.length, 1)));
        if (stretch.length == 0)
            return;
        key_ = stretch.first + stretch.length - 1;
        for (std::size_t i = stretch.first; i < key_; ++i) {
            const uint8_t value = pattern.value[i];
            moves_[value] = Move(key_ - i);
            moves_[static_cast<uint8_t>(value | static_cast<uint8_t>(~pattern.care[i]))] = Move(key_ - i);
        }
    }

    /** Where the first occurrence begins. */
    std::optional<std::size_t> FindIn(std::span<const uint8_t> bytes) const {
        return has_rarest_ ? FindByRarest(bytes) : FindByMoves(bytes);
    }

private:
    static constexpr std::size_t kShortStretch = 4; // bytes

    static uint8_t Move(std::size_t distance) { return static_cast<uint8_t>(std::min<std::size_t>(distance, 255)); }

    std::optional<std::size_t> FindByMoves(std::span<const uint8_t> bytes) const {
        for (std::size_t at = 0; at + pattern_.length <= bytes.size(); at += moves_[bytes[at + key_]])
            if (pattern_.IsAt(&bytes[at]))
                return at;
        return std::nullopt;
    }

    std::optional<std::size_t> FindByRarest(std::span<const uint8_t> bytes) const {
        for (std::size_t at = 0; at + pattern_.length <= bytes.size(); ++at) {
            const uint8_t *from = &bytes[at + key_];
            const void *rarest = std::memchr(from, pattern_.value[key_], bytes.size() - pattern_.length - at + 1);
            if (rarest == nullptr)
                return std::nullopt;
            at += static_cast<std::size_t>(static_cast<const uint8_t *>(rarest) - from);
            if (pattern_.IsAt(&bytes[at]))
                return at;
        }
        return std::nullopt;
    }

    const StringPattern &pattern_;
    bool has_rarest_ = false;
    std::size_t key_ = 0; // the byte of the pattern that is looked at: the rarest, or the stretch's last
    std::array<uint8_t, 256> moves_;
};

bool IsPlainlyAt(base::FileBytes &bytes, uint64_t offset, const StringFeature &string) {
    const auto lower = [](uint8_t byte) { return base::LowerAscii(static_cast<char>(byte)); };
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

std::optional<uint64_t> FindString(base::FileBytes &bytes, base::Region region, const StringFeature &string) {
    const StringPattern pattern(string);
    const Starts starts = CountingStarts(string, pattern.length, region.length);
    if (starts.IsEmpty())
        return std::nullopt;
    const base::Region place = {region.offset + starts.first, starts.end - starts.first - 1 + pattern.length};
    if (place.length == pattern.length) {
        uint8_t there[kLongestPattern];
        const bool is_there = bytes.Read(place.offset, there, pattern.length) && pattern.IsAt(there);
        return is_there ? std::optional(place.offset) : std::nullopt;
    }
    const PatternSearch search(pattern, AnchoredStretch(string, pattern));
    std::optional<uint64_t> found;
    const auto find = [&](std::span<const uint8_t> piece, uint64_t offset) {
        if (const std::optional<std::size_t> at = search.FindIn(piece))
            found = offset + *at;
        return !found;
    };
    if (place.length <= kSmallPlace) {
        uint8_t there[kSmallPlace];
        const auto length = static_cast<std::size_t>(place.length);
        if (bytes.Read(place.offset, there, length))
            find({there, length}, place.offset);
        return found;
    }
    bytes.ForPieces(place, pattern.length - 1, find);
    return found;
}

bool IsStringPresentPlainly(base::FileBytes &bytes, base::Region region, const StringFeature &string) {
    const uint64_t length = uint64_t{string.length} * ((string.param_e & rules::kStringWide) != 0 ? 2 : 1);
    for (uint64_t start = 0; start + length <= region.length; ++start) {
        const uint64_t position = rules::FromEnd(string.string_kind) ? region.length - length - start : start;
        const bool is_early = position + string.param_f < string.param_b;
        const bool is_late =
            string.param_c != 0 && position >= uint64_t{string.param_b} + string.param_c + string.param_f;
        if (!is_early && !is_late && IsPlainlyAt(bytes, region.offset + start, string))
            return true;
    }
    return false;
}

} // namespace tavrik::evaluation
