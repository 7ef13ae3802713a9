/* The scan for script headers of known altered builds. */
#ifndef TAVRIK2_LOCATORS_SCANS_ALTERED_AUTOIT_SCAN_H
#define TAVRIK2_LOCATORS_SCANS_ALTERED_AUTOIT_SCAN_H

#include <cstdint>

#include "tavrik2/file_stream.h"

namespace tavrik2 {

/** Scans the file from `start` in 4096-byte blocks, each read in full, for one of four 32-byte headers; an earlier row
 * of the table wins over a later one in the same block. Arguments and result as FindAutoItScript. */
int FindAlteredAutoItHeader(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

} // namespace tavrik2

#endif
