/* The scan for the header of a compiled AutoIt script. */
#ifndef TAVRIK2_LOCATORS_SCANS_AUTOIT_SCRIPT_SCAN_H
#define TAVRIK2_LOCATORS_SCANS_AUTOIT_SCRIPT_SCAN_H

#include <cstdint>

#include "tavrik2/file_stream.h"

namespace tavrik2 {

/** Scans the file from `start` in 4096-byte blocks for a script header in either form: AutoItMarker with "AU3!EA05"
 * after it, or "AU3!EA06" with one of two patterns 24 bytes on. Of each mark only a block's first occurrence counts; a
 * header across two blocks is not found; a header before `start` ends the search.
 *
 * Returns 1 with the header's file offset in `out`. Returns 0 otherwise and leaves 0 in `out`, or returns 0 and leaves
 * `out` alone when it or `stream` is null. */
int FindAutoItScript(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

} // namespace tavrik2

#endif
