#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// The rightmost position of every byte value before the pattern's last byte; -1 for a value that does not occur there.
struct SkipTable {
    int32_t position[256];

    SkipTable(const uint8_t *pattern, int32_t pattern_length) {
        for (int32_t &entry : position)
            entry = -1;
        for (int32_t index = 0; index + 1 < pattern_length; ++index)
            position[pattern[index]] = index;
    }
};

// Compares from the end, but looks at the first byte before anything else.
bool MatchesAt(const uint8_t *place, const uint8_t *pattern, int32_t pattern_length) {
    for (int32_t index = pattern_length - 1; index >= 0; --index) {
        if (pattern[0] != place[0] || pattern[index] != place[index])
            return false;
    }
    return true;
}

} // namespace

int32_t FindBytePattern(const uint8_t *buffer, int32_t length, const uint8_t *pattern, int32_t pattern_length) {
    const int32_t limit = length - pattern_length;
    if (limit < 0)
        return -1;
    const SkipTable skip(pattern, pattern_length);
    int32_t place = 0;
    while (!MatchesAt(buffer + place, pattern, pattern_length)) {
        // A last position of -1 shifts by the whole pattern; the shift is never below 1.
        place += pattern_length - 1 - skip.position[buffer[place + pattern_length - 1]];
        if (place > limit)
            return -1;
    }
    return place;
}

} // namespace tavrik2
