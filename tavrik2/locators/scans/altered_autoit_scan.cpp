#include "tavrik2/locators/scans/altered_autoit_scan.h"

#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/block_walk.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

BlockVerdict Examine(const uint8_t *block, int32_t length, int32_t position) {
    for (const uint8_t(&header)[32] : AlteredAutoItHeaders) {
        const int32_t place = FindBytePattern(block, length, header);
        if (place >= 0)
            return {BlockVerdict::Found, WrappingAdd(position, place)};
    }
    return {BlockVerdict::GoOn, 0};
}

} // namespace

int FindAlteredAutoItHeader(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream) {
    constexpr BlockWalk kWalk = {kFindAlteredAutoItHeaderEndMargin, kFindAlteredAutoItHeaderReadCount};
    return WalkBlocks(handle, file_size, start, out, stream, kWalk, Examine);
}

} // namespace tavrik2
