/* The PE headers and the section table, read from the file through the host's stream.
 *
 * Nothing is cached: every operation rereads the headers it needs and uses the stream's position as scratch. Offsets
 * are not compared with the file size. Only the DOS header's length and, in GetSectionHeader, a seek are tested; of
 * bytes that a short read did not deliver, those of an inner buffer are zero, and those of an `out` keep what they
 * held. */
#ifndef TAVRIK2_PE_SECTION_TABLE_H
#define TAVRIK2_PE_SECTION_TABLE_H

#include <cstdint>

#include "tavrik2/file_stream.h"
#include "tavrik2/section_header.h"

namespace tavrik2 {

/** The fields that address mapping takes from the raw optional header (PE32 and PE32+ share these positions). */
struct RawOptionalHeader {
    uint32_t SectionAlignment;
    uint32_t FileAlignment;
    uint16_t Subsystem;
    uint32_t NumberOfRvaAndSizes; /* from the PE32 position, also in PE32+ files */
};

/** Reads the fixed part of the raw optional header; the stream's position is restored. */
RawOptionalHeader ReadRawOptionalHeader(FileStream *stream, uint32_t handle);

/** Returns NumberOfSections; the stream's position is restored. */
uint32_t GetSectionCount(FileStream *stream, uint32_t handle);

/** Returns the file offset of the first section header; the stream's position is restored. */
uint32_t GetSectionTableOffset(FileStream *stream, uint32_t handle);

/** The file offset of a section header in a table that begins at `table_offset`; wraps. */
constexpr uint32_t SectionHeaderOffset(uint32_t table_offset, uint32_t index) {
    return table_offset + static_cast<uint32_t>(sizeof(SectionHeader)) * index;
}

/** Returns the file offset of the first section header whose name equals `name` (ASCII case-insensitive, the whole
 * string), or -1. Leaves the stream just past the last header read. */
int32_t FindSectionByName(FileStream *stream, uint32_t handle, const char *name);

/** Copies the header of the first section of that name to `out`. Returns 1, or 0 with `out` untouched. */
int GetSectionHeaderByName(FileStream *stream, uint32_t handle, const char *name, SectionHeader *out);

/** Copies the section header at `index` (0-based, not compared with NumberOfSections) to `out` and leaves the stream at
 * the start of that header. Returns 1, or 0 with `out` untouched when the stream cannot go there. */
int GetSectionHeader(FileStream *stream, uint32_t handle, uint32_t index, SectionHeader *out);

} // namespace tavrik2

#endif
