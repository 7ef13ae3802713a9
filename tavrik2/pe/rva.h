/* Relative virtual addresses to file offsets. */
#ifndef TAVRIK2_PE_RVA_H
#define TAVRIK2_PE_RVA_H

#include <cstdint>

#include "tavrik2/file_stream.h"

namespace tavrik2 {

/** The result of RvaToFileOffset for an address that nothing maps. */
inline constexpr uint32_t kUnmappedRva = 0xFFFFFFFF;

/** Maps an RVA to a file offset by the file's own section table, tolerant of malformed images: the section that holds
 * the address (later sections first), the last section with its end included, the headers (offset = RVA), the section
 * that holds the address rounded down to the section alignment.
 *
 * Returns kUnmappedRva when none does. The result is not compared with the file size. Leaves the stream after the last
 * section header read. */
uint32_t RvaToFileOffset(FileStream *stream, uint32_t handle, uint32_t rva);

} // namespace tavrik2

#endif
