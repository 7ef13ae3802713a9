#include "tavrik2/locators/scans/chunk_search.h"

#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {
namespace {

constexpr uint32_t kChunkSize = kSearchChunksRead;
constexpr int32_t kChunkStep = kSearchChunksRead[0] - kSearchChunksOverlap[0];

} // namespace

int SearchChunks(const TargetFile &file, ChunkRange range, Finding *finding) {
    uint8_t chunk[kChunkSize];
    int32_t position = range.start;
    for (uint32_t count = 0; count < range.max_chunks; ++count) {
        if (position < 0 || position >= range.limit || !file.SeekExactly(AsOffset(position)))
            return kDeclined;
        const uint32_t read = file.ReadCleared(chunk);
        const uint32_t length = read < kChunkSize ? read : kChunkSize;
        const int32_t place = FindBytePattern(chunk, static_cast<int32_t>(length), AutoItMarker);
        if (place >= 0) {
            const int32_t offset = WrappingAdd(position, place);
            return offset != 0 ? Report(finding, AsOffset(offset), kHeaderSize) : kDeclined;
        }
        if (length < kChunkSize)
            return kDeclined;
        position = WrappingAdd(position, kChunkStep);
    }
    return kDeclined;
}

} // namespace tavrik2
