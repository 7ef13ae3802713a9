/* The walk that the script scans share: forward through the file in blocks of 4096 bytes that do not overlap. */
#ifndef TAVRIK2_LOCATORS_SCANS_BLOCK_WALK_H
#define TAVRIK2_LOCATORS_SCANS_BLOCK_WALK_H

#include <cstdint>

#include "tavrik2/bytes.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/pe/stream_io.h"

namespace tavrik2 {

/** Where the walks differ. */
struct BlockWalk {
    uint32_t tail;         // the walk ends this many bytes before the end of the file
    uint32_t minimum_read; // a block that delivers fewer bytes ends the walk
};

/** What a scan says of one block. */
struct BlockVerdict {
    enum { GoOn, Found, GiveUp } kind;
    int32_t offset; // the file offset, with Found
};

/** Walks the blocks from `start` and asks `examine(block, length, position)` about each, `length` being the bytes read.
 *
 * Returns 1 with the offset in `out` when a block was Found. Returns 0 when the file ends, a seek lands elsewhere, a
 * read falls short or `examine` gives up, and leaves 0 in `out`; with `out` or `stream` null it returns 0 at once. */
template <typename Examine>
int WalkBlocks(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream, BlockWalk walk,
               Examine examine) {
    if (out == nullptr || stream == nullptr)
        return 0;
    *out = 0;
    const int32_t end = WrappingSubtract(file_size, walk.tail);
    uint8_t block[kBlockSize];
    for (int32_t position = start; position < end;) {
        if (!SeekExactly(stream, handle, AsOffset(position)))
            return 0;
        const uint32_t length = ReadCleared(stream, handle, block);
        if (length < walk.minimum_read || length > kBlockSize)
            return 0;
        const BlockVerdict verdict = examine(block, static_cast<int32_t>(length), position);
        if (verdict.kind == BlockVerdict::Found)
            *out = AsOffset(verdict.offset);
        if (verdict.kind != BlockVerdict::GoOn)
            return verdict.kind == BlockVerdict::Found ? 1 : 0;
        // Positions only ever rise: one that would pass 2^31 ends the walk.
        if (__builtin_add_overflow(position, static_cast<int32_t>(kBlockSize), &position))
            return 0;
    }
    return 0;
}

} // namespace tavrik2

#endif
