#include "tavrik2/locators/scans/offset_table_probe.h"

#include <cstring>

#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"

namespace tavrik2 {
namespace {

bool Matches(uint32_t wanted, uint32_t value) {
    return wanted == 0 || wanted == value;
}

bool HoldsMarker(const uint8_t *block, ProbeMarkers markers) {
    for (uint32_t index = 0; index < markers.count; ++index) {
        if (LoadU32(block) == markers.words[index])
            return true;
    }
    return false;
}

// Copies the header of the section that a row names; false when the file has none.
bool ReadNamedSection(FileStream *stream, uint32_t handle, const OffsetProbeRow &row, SectionHeader *section) {
    char name[sizeof row.section_name + 1] = {};
    std::memcpy(name, row.section_name, sizeof row.section_name);
    *section = {};
    return GetSectionHeaderByName(stream, handle, name, section) == 1;
}

} // namespace

int ProbeOffsetTable(FileStream *stream, uint32_t handle, int32_t file_size, const uint32_t *data_dirs,
                     const OptionalHeader *opt_header, const SectionHeader *last_section, Finding *finding,
                     const OffsetProbeRow *rows, uint32_t row_count, bool ignore_resource_rva, ProbeMarkers markers) {
    for (uint32_t index = 0; index < row_count; ++index) {
        const OffsetProbeRow &row = rows[index];
        if (!Matches(row.code_size, opt_header->SizeOfCode) ||
            !Matches(row.init_data_size, opt_header->SizeOfInitializedData) ||
            !(ignore_resource_rva || Matches(row.resource_rva, LoadU32(data_dirs + kProbeOffsetTableResourceWord))))
            continue;

        uint32_t base;
        SectionHeader named;
        switch (row.anchor) {
        case EndOfFile:
            base = AsOffset(file_size);
            break;
        case LastSectionStart:
            base = last_section->PointerToRawData;
            break;
        case LastSectionEnd:
            base = RawDataEnd(*last_section);
            break;
        case NamedSectionStart:
        case NamedSectionEnd:
            if (!ReadNamedSection(stream, handle, row, &named))
                return kDeclined;
            base = row.anchor == NamedSectionStart ? named.PointerToRawData : RawDataEnd(named);
            break;
        default:
            return kDeclined;
        }

        const bool from_start = row.anchor == LastSectionStart || row.anchor == NamedSectionStart;
        if (row.direction == After && row.anchor != EndOfFile)
            base += row.distance;
        else if (row.direction == Before)
            base -= row.distance;
        else if (row.direction != At || !from_start)
            return kDeclined;

        // The block must end before the file's last byte.
        const int32_t offset = AsSigned(base);
        if (offset <= 0 || offset >= file_size || WrappingAdd(offset, kHeaderSize) >= file_size)
            continue;
        uint8_t block[kHeaderSize];
        Seek(stream, handle, base);
        if (ReadCleared(stream, handle, block) < kHeaderSize || !HoldsMarker(block, markers))
            continue;
        return Report(finding, base, kHeaderSize);
    }
    return kDeclined;
}

} // namespace tavrik2
