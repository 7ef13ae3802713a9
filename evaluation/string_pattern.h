/* A rule's string as it is in a file. */
#ifndef TAVRIK_EVALUATION_STRING_PATTERN_H
#define TAVRIK_EVALUATION_STRING_PATTERN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "rules/model.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** The most bytes of a file that an occurrence covers. */
inline constexpr std::size_t kLongestPattern = 2 * rules::kMaxStringLength;

/** What turns an ASCII letter into the other case. */
inline constexpr uint8_t kCaseBit = 0x20;

/** How rare a byte is in programs, in bits: about minus the logarithm of its share. */
constexpr int Rarity(uint8_t byte) {
    if (byte == 0)
        return 1;
    if (byte < 0x10)
        return 5;
    return byte < 0x80 || byte == 0xFF ? 7 : 9;
}

/** Whether the pattern is at `bytes`, which has at least as many: each under `care` equals its byte of `value`. */
inline bool IsPatternAt(const uint8_t *bytes, const uint8_t *value, const uint8_t *care, std::size_t length) {
    using Word = uint64_t;
    const auto differs = [&](std::size_t at) {
        Word words[3];
        std::memcpy(&words[0], bytes + at, sizeof(Word));
        std::memcpy(&words[1], value + at, sizeof(Word));
        std::memcpy(&words[2], care + at, sizeof(Word));
        return (words[0] & words[2]) != words[1];
    };
    if (length < sizeof(Word)) {
        for (std::size_t i = 0; i < length; ++i)
            if ((bytes[i] & care[i]) != value[i])
                return false;
        return true;
    }
    for (std::size_t at = 0; at + sizeof(Word) < length; at += sizeof(Word))
        if (differs(at))
            return false;
    return !differs(length - sizeof(Word));
}

/** The bytes of an occurrence, with wildcards, case and width taken into account: a file's byte fits when its bits
 * under `care` are those of `value`. `care` is 0 for a wildcard, all but kCaseBit for a letter in either case, else
 * 0xFF. */
struct StringPattern {
    /** `string` is in working form. */
    explicit StringPattern(const StringFeature &string);

    bool IsAt(const uint8_t *bytes) const { return IsPatternAt(bytes, value.data(), care.data(), length); }

    std::array<uint8_t, kLongestPattern> value;
    std::array<uint8_t, kLongestPattern> care;
    std::size_t length = 0; // bytes
};

/** The places where an occurrence counts: offsets in the region from `first` up to, not including, `end`. */
struct Starts {
    uint64_t first = 0;
    uint64_t end = 0;

    bool IsEmpty() const { return first >= end; }
};

/** Where an occurrence of `length` bytes counts by the string's window in a region of `region_length` bytes. */
Starts CountingStarts(const StringFeature &string, uint64_t length, uint64_t region_length);

} // namespace tavrik::evaluation

#endif
