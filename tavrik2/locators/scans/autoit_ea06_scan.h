/* The scan for EA06 script headers whose leading bytes may be anything. */
#ifndef TAVRIK2_LOCATORS_SCANS_AUTOIT_EA06_SCAN_H
#define TAVRIK2_LOCATORS_SCANS_AUTOIT_EA06_SCAN_H

#include <cstdint>

#include "tavrik2/file_stream.h"

namespace tavrik2 {

/** Scans the file from `start` in 4096-byte blocks for "EA06" with AutoItEA06PatternA 20 bytes on; the header begins 20
 * bytes before the tag. Only the first tag and the first pattern of a block are paired; a header before `start` ends
 * the search. Arguments and result as FindAutoItScript. */
int FindAutoItEA06Header(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

} // namespace tavrik2

#endif
