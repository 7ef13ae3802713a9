/* The scan for the signature of a compiled AutoIt script. */
#ifndef TAVRIK2_LOCATORS_SCANS_AUTOIT_SIGNATURE_SCAN_H
#define TAVRIK2_LOCATORS_SCANS_AUTOIT_SIGNATURE_SCAN_H

#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** Scans the file from `start` in 4096-byte blocks for a script's signature: the marker's first seven bytes with
 * "AU3!EA" 16 bytes on, or one of seven markers of altered builds. Every block must be read in full, and a signature
 * that straddles two blocks is not found.
 *
 * Returns 1 with the signature's file offset in `out`. Returns 0 otherwise and leaves 0 in `out`, or returns 0 and
 * leaves `out` alone when it or `stream` is null. */
int FindAutoItSignature(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

/** The last steps of the locators that scan for a signature: from `start`, reported with the block's size. */
int ReportAutoItSignature(const TargetFile &file, uint32_t start, Finding *finding);

} // namespace tavrik2

#endif
