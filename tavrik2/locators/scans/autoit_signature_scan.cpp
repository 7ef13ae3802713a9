#include "tavrik2/locators/scans/autoit_signature_scan.h"

#include "tavrik2/locators/scans/block_walk.h"
#include "tavrik2/locators/scans/marker_filter.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// The first seven bytes of AutoItMarker.
constexpr uint8_t AutoItPrefix[7] = {0xA3, 0x48, 0x4B, 0xBE, 0x98, 0x6C, 0x4A};

// Markers of altered builds; the order decides which one is reported when a block holds several.
constexpr uint8_t AutoItAltMarkers[7][16] = {
    {0xA3, 0xA7, 0x97, 0xE0, 0x26, 0xF9, 0x0B, 0x7D, 0xB4, 0x3B, 0x43, 0xDF, 0xC8, 0x82, 0x17, 0x45},
    {0xAE, 0xF0, 0x1A, 0x9F, 0x55, 0xDC, 0x4E, 0x9C, 0xBA, 0xBA, 0x56, 0x7C, 0xF1, 0x8D, 0x08, 0x04},
    {0x10, 0x19, 0xEE, 0x2F, 0xE4, 0xCD, 0x54, 0x56, 0xFB, 0xF9, 0xBD, 0xFD, 0xE6, 0x96, 0xA7, 0x0D},
    {0x58, 0x10, 0x00, 0xEF, 0x39, 0x5B, 0x38, 0xC6, 0x34, 0x1B, 0xD6, 0xA7, 0xE1, 0xA3, 0xC6, 0x42},
    {0xBA, 0x42, 0x54, 0x97, 0x69, 0xD9, 0xED, 0x78, 0xBA, 0xEF, 0x79, 0xEA, 0x04, 0x9A, 0xF7, 0x2E},
    {0x82, 0xA8, 0x1F, 0x96, 0x53, 0xED, 0x2D, 0xCB, 0x3A, 0x03, 0xB6, 0x6D, 0x44, 0x78, 0xF8, 0xB3},
    {0x61, 0xA3, 0x37, 0x0E, 0xBC, 0x86, 0x76, 0x8B, 0x77, 0x71, 0x30, 0x52, 0x29, 0x26, 0xC6, 0x5D},
};

// Nearly every block holds no marker and is done with after one pass over it.
constexpr MarkerFilter kFilter(AutoItPrefix, AutoItAltMarkers[0], AutoItAltMarkers[1], AutoItAltMarkers[2],
                               AutoItAltMarkers[3], AutoItAltMarkers[4], AutoItAltMarkers[5], AutoItAltMarkers[6]);

// A prefix counts only this far from the end of its block and before the text "AU3!EA".
constexpr uint32_t kTail = 32;
constexpr int32_t kPrefixEnd = kBlockSize - kTail;
constexpr int32_t kTextDistance = 16;
constexpr uint32_t kTextAu3 = 0x21335541; // "AU3!"
constexpr uint16_t kTextEa = 0x4145;      // "EA"

bool IsFollowedByText(const uint8_t *prefix) {
    return LoadU32(prefix + kTextDistance) == kTextAu3 && LoadU16(prefix + kTextDistance + 4) == kTextEa;
}

BlockVerdict Examine(const uint8_t *block, int32_t length, int32_t position) {
    if (!kFilter.MayHoldMarker(block, kBlockSize))
        return {BlockVerdict::GoOn, 0};
    // Only the first prefix of a block is considered.
    const int32_t prefix = FindBytePattern(block, length, AutoItPrefix);
    if (prefix >= 0 && prefix < kPrefixEnd && IsFollowedByText(block + prefix))
        return {BlockVerdict::Found, WrappingAdd(position, prefix)};
    for (const uint8_t(&marker)[16] : AutoItAltMarkers) {
        const int32_t place = FindBytePattern(block, length, marker);
        if (place >= 0)
            return {BlockVerdict::Found, WrappingAdd(position, place)};
    }
    return {BlockVerdict::GoOn, 0};
}

} // namespace

int FindAutoItSignature(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream) {
    constexpr BlockWalk kWalk = {kTail, kBlockSize};
    return WalkBlocks(handle, file_size, start, out, stream, kWalk, Examine);
}

int ReportAutoItSignature(const TargetFile &file, uint32_t start, Finding *finding) {
    uint32_t found;
    if (FindAutoItSignature(file.handle, file.file_size, AsSigned(start), &found, file.stream) == 0)
        return kDeclined;
    return Report(finding, found, kBlockSize);
}

} // namespace tavrik2
