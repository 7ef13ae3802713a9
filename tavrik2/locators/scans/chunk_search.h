/* The search for AutoItMarker in large overlapping chunks. */
#ifndef TAVRIK2_LOCATORS_SCANS_CHUNK_SEARCH_H
#define TAVRIK2_LOCATORS_SCANS_CHUNK_SEARCH_H

#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** Where a chunk search runs, as signed file offsets. */
struct ChunkRange {
    int32_t start;
    int32_t limit;       // no chunk begins here or later
    uint32_t max_chunks; // and no more than these are read
};

/** Searches forward for the whole AutoItMarker in 16 KB chunks that overlap by its length, so that a marker across two
 * chunks is found. The last chunk may be short. A marker at offset 0 does not count. Returns 1 with `finding` written
 * (the marker's offset), else 0. */
int SearchChunks(const TargetFile &file, ChunkRange range, Finding *finding);

} // namespace tavrik2

#endif
