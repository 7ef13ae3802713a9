/* Byte patterns in memory. */
#ifndef TAVRIK2_PE_BYTE_PATTERN_H
#define TAVRIK2_PE_BYTE_PATTERN_H

#include <cstdint>

namespace tavrik2 {

/** Finds the first occurrence of a pattern in `buffer` by the Boyer-Moore-Horspool method. Lengths are signed byte
 * counts; only buffer[0 .. length - 1] is read. Returns the occurrence's offset, or -1. An empty pattern is found at 0
 * unless `length` is negative. */
int32_t FindBytePattern(const uint8_t *buffer, int32_t length, const uint8_t *pattern, int32_t pattern_length);

/** The same for a pattern whose length its type tells. */
template <uint32_t PatternLength>
int32_t FindBytePattern(const uint8_t *buffer, int32_t length, const uint8_t (&pattern)[PatternLength]) {
    return FindBytePattern(buffer, length, pattern, static_cast<int32_t>(PatternLength));
}

} // namespace tavrik2

#endif
