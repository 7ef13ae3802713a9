#include "tavrik2/locators/scans/autoit_ea06_scan.h"

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/marker_filter.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// Byte distances: of the tag from the header, and of the pattern from the tag.
constexpr int32_t kTagDistance = kFindAutoItEA06HeaderTagInHeader[0];
constexpr int32_t kPatternDistance = kFindAutoItEA06HeaderPatternDistance[0];

// Nearly every block is without the pattern and is dismissed after one look over it.
constexpr auto kPatternFilter = MakeMarkerFilter<8>(AutoItEA06PatternA);

} // namespace

int FindAutoItEA06Header(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream) {
    const auto examine = [start](const uint8_t(&block)[kBlockSize], int32_t length, int32_t position) -> BlockVerdict {
        if (!kPatternFilter.MayHoldMarker(block))
            return {BlockVerdict::GoOn, 0};
        const int32_t tag = FindBytePattern(block, length, AutoItShortTagEA06);
        if (tag >= 0 && FindBytePattern(block, length, AutoItEA06PatternA) == tag + kPatternDistance)
            return HeaderAt(position, tag - kTagDistance, start);
        return {BlockVerdict::GoOn, 0};
    };
    return WalkBlocks(handle, file_size, start, out, stream,
                      {kFindAutoItEA06HeaderEndMargin, kFindAutoItEA06HeaderReadCount}, examine);
}

} // namespace tavrik2
