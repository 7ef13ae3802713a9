#include "tavrik2/locators/scans/autoit_script_scan.h"

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/marker_filter.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// Byte distances: of the tag from the header, and of an EA06 pattern from the tag.
constexpr int32_t kTagDistance = kFindAutoItScriptTagInHeader[0];
constexpr int32_t kPatternDistance = kFindAutoItScriptEa06Distance[0];

// What is beside the tag of a script that counts. Nearly every block is without it and is dismissed after one look.
constexpr auto kScriptFilter = MakeMarkerFilter<8>(AutoItMarker, AutoItEA06PatternA, AutoItEA06PatternB);

// True when the first occurrence of `mark` in the block is at `place`.
template <uint32_t Size>
bool IsFirstAt(const uint8_t *block, int32_t length, const uint8_t (&mark)[Size], int32_t place) {
    return place >= 0 && FindBytePattern(block, length, mark) == place;
}

} // namespace

int FindAutoItScript(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream) {
    const auto examine = [start](const uint8_t(&block)[kBlockSize], int32_t length, int32_t position) -> BlockVerdict {
        constexpr BlockVerdict kGoOn = {BlockVerdict::GoOn, 0};
        if (!kScriptFilter.MayHoldMarker(block))
            return kGoOn;
        // A block with the EA05 tag is not examined for the EA06 form.
        int32_t tag = FindBytePattern(block, length, AutoItTagEA05);
        if (tag >= 0)
            return IsFirstAt(block, length, AutoItMarker, tag - kTagDistance)
                       ? HeaderAt(position, tag - kTagDistance, start)
                       : kGoOn;
        tag = FindBytePattern(block, length, AutoItTagEA06);
        if (tag >= 0 && (IsFirstAt(block, length, AutoItEA06PatternA, tag + kPatternDistance) ||
                         IsFirstAt(block, length, AutoItEA06PatternB, tag + kPatternDistance)))
            return HeaderAt(position, tag - kTagDistance, start);
        return kGoOn;
    };
    return WalkBlocks(handle, file_size, start, out, stream, {kFindAutoItScriptEndMargin, kFindAutoItScriptReadCount},
                      examine);
}

} // namespace tavrik2
