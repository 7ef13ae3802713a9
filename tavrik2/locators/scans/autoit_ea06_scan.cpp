#include "tavrik2/locators/scans/autoit_ea06_scan.h"

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

constexpr uint8_t kTag[4] = {'E', 'A', '0', '6'};

// Byte distances: of the tag from the header, and of the pattern from the tag.
constexpr int32_t kTagDistance = 20;
constexpr int32_t kPatternDistance = 20;

} // namespace

int FindAutoItEA06Header(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream) {
    const auto examine = [start](const uint8_t *block, int32_t length, int32_t position) -> BlockVerdict {
        const int32_t tag = FindBytePattern(block, length, kTag);
        if (tag >= 0 && FindBytePattern(block, length, AutoItEA06PatternA) == tag + kPatternDistance)
            return HeaderAt(position, tag - kTagDistance, start);
        return {BlockVerdict::GoOn, 0};
    };
    return WalkBlocks(handle, file_size, start, out, stream, kHeaderWalk, examine);
}

} // namespace tavrik2
