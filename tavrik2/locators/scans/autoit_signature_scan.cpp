#include "tavrik2/locators/scans/autoit_signature_scan.h"

#include <cstring>

#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/block_walk.h"
#include "tavrik2/locators/scans/marker_filter.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// Nearly every block holds no marker and is dismissed after one pass over it.
// Its step is short, since of the first marker a prefix counts.
constexpr auto kSignatureFilter =
    MakeMarkerFilter<4>(AutoItMarker, AutoItAltMarkers[0], AutoItAltMarkers[1], AutoItAltMarkers[2],
                        AutoItAltMarkers[3], AutoItAltMarkers[4], AutoItAltMarkers[5], AutoItAltMarkers[6]);
static_assert(kFindAutoItSignaturePrefixLength[0] == 7, "as many bytes as the filter needs");

// A prefix counts only this far from the end of its block and before the text "AU3!EA".
constexpr int32_t kPrefixLength = kFindAutoItSignaturePrefixLength[0];
constexpr int32_t kPrefixEnd = kFindAutoItSignaturePrefixBelow[0];
constexpr int32_t kTextDistance = kFindAutoItSignatureTagDistance[0];
constexpr std::size_t kTextLength = 6; // of either generation's tag

bool IsFollowedByText(const uint8_t *prefix) {
    return std::memcmp(prefix + kTextDistance, AutoItTagEA05, kTextLength) == 0;
}

BlockVerdict Examine(const uint8_t (&block)[kBlockSize], int32_t length, int32_t position) {
    if (!kSignatureFilter.MayHoldMarker(block))
        return {BlockVerdict::GoOn, 0};
    // Only the first prefix of a block is considered.
    const int32_t prefix = FindBytePattern(block, length, AutoItMarker, kPrefixLength);
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
    constexpr BlockWalk kWalk = {kFindAutoItSignatureEndMargin, kFindAutoItSignatureReadCount};
    return WalkBlocks(handle, file_size, start, out, stream, kWalk, Examine);
}

int ReportAutoItSignature(const TargetFile &file, uint32_t start, Finding *finding) {
    uint32_t found;
    if (FindAutoItSignature(file.handle, file.file_size, AsSigned(start), &found, file.stream) == 0)
        return kDeclined;
    return Report(finding, found, kBlockSize);
}

} // namespace tavrik2
