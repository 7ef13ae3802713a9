/* The probe of a table of known builds, each of which keeps its block at one known offset. */
#ifndef TAVRIK2_LOCATORS_SCANS_OFFSET_TABLE_PROBE_H
#define TAVRIK2_LOCATORS_SCANS_OFFSET_TABLE_PROBE_H

#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** Where a row's distance is measured from. */
enum ProbeAnchor : uint32_t {
    EndOfFile,         // accepts Before only
    LastSectionStart,  // of the raw data
    LastSectionEnd,    // accepts After and Before
    NamedSectionStart, // of the raw data
    NamedSectionEnd,   // accepts After and Before
};

enum ProbeDirection : uint32_t {
    At,
    After,
    Before,
};

/** One build: its header key, whose zeros match any value, and the place of its block. */
struct OffsetProbeRow {
    uint32_t code_size;      // SizeOfCode
    uint32_t init_data_size; // SizeOfInitializedData
    uint32_t resource_rva;   // the resource directory's VirtualAddress
    ProbeAnchor anchor;
    ProbeDirection direction;
    uint32_t distance;    // bytes
    char section_name[8]; // NUL-padded; for the named-section anchors
};

/** The words that a block may begin with. */
struct ProbeMarkers {
    const uint32_t *words;
    uint32_t count;
};

/** Tries the rows in order: a row whose key matches the headers gives an offset, and the first 256-byte block there
 * that begins with one of the markers is the finding. A missing named section, or an anchor or direction outside its
 * range, ends the whole probe; a block that is out of bounds (it must end before the file's last byte), short or
 * without a marker only its row. With `ignore_resource_rva` every row's resource_rva matches.
 *
 * Returns 1 with `finding` written, else 0. */
int ProbeOffsetTable(FileStream *stream, uint32_t handle, int32_t file_size, const uint32_t *data_dirs,
                     const OptionalHeader *opt_header, const SectionHeader *last_section, Finding *finding,
                     const OffsetProbeRow *rows, uint32_t row_count, bool ignore_resource_rva, ProbeMarkers markers);

/** The same for a locator's file. */
template <uint32_t RowCount, uint32_t MarkerCount>
int ProbeOffsetTable(const TargetFile &file, Finding *finding, const OffsetProbeRow (&rows)[RowCount],
                     bool ignore_resource_rva, const uint32_t (&markers)[MarkerCount]) {
    return ProbeOffsetTable(file.stream, file.handle, file.file_size, file.data_dirs, file.opt_header,
                            file.last_section, finding, rows, RowCount, ignore_resource_rva, {markers, MarkerCount});
}

} // namespace tavrik2

#endif
