/* The search of one block for NullsoftMarker. */
#ifndef TAVRIK2_LOCATORS_NULLSOFT_MARKER_BLOCK_H
#define TAVRIK2_LOCATORS_NULLSOFT_MARKER_BLOCK_H

#include <cstdint>
#include <cstring>

#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/target_file.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {

inline constexpr int32_t kNoMarker = -1;

/** Clears the block, fills it from the stream's position and returns the marker's position in it, or kNoMarker. */
inline int32_t FindMarker(const TargetFile &file, uint8_t *block, uint32_t length) {
    std::memset(block, 0, length);
    if (Read(file.stream, file.handle, block, length) != length)
        return kNoMarker;
    return FindBytePattern(block, static_cast<int32_t>(length), NullsoftMarker);
}

/** The finding for a marker at `place` of a block; kNoMarker declines. */
inline int ReportMarker(uint32_t block_start, int32_t place, Finding *finding) {
    if (place == kNoMarker)
        return kDeclined;
    return Report(finding, block_start + AsOffset(place), kHeaderSize);
}

/** Searches `Length` bytes at `block_start` in a block of the call's own. */
template <uint32_t Length>
int SearchOwnBlock(const TargetFile &file, uint32_t block_start, Finding *finding) {
    if (!file.SeekExactly(block_start))
        return kDeclined;
    uint8_t block[Length];
    return ReportMarker(block_start, FindMarker(file, block, Length), finding);
}

} // namespace tavrik2

#endif
