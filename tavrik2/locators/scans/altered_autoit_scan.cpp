#include "tavrik2/locators/scans/altered_autoit_scan.h"

#include <iterator>

#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/block_walk.h"
#include "tavrik2/locators/scans/marker_filter.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

// Nearly every block holds no header and is dismissed after one look over it.
constexpr auto kHeaderFilter = MakeMarkerFilter<16>(AlteredAutoItHeaders[0], AlteredAutoItHeaders[1],
                                                    AlteredAutoItHeaders[2], AlteredAutoItHeaders[3]);
static_assert(std::size(AlteredAutoItHeaders) == 4);

BlockVerdict Examine(const uint8_t (&block)[kBlockSize], int32_t length, int32_t position) {
    if (!kHeaderFilter.MayHoldMarker(block))
        return {BlockVerdict::GoOn, 0};
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
