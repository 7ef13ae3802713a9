#include "pe_records.h"

#include <string.h>

static size_t ReadAt(FILE *file, uint32_t offset, void *buffer, size_t length) {
    memset(buffer, 0, length);
    return fseek(file, (long)offset, SEEK_SET) == 0 ? fread(buffer, 1, length, file) : 0;
}

/* The optional header in the shape of PE32+, whatever it is in the file. */
static void Widen(const uint8_t *raw, Records *records) {
    enum { kBeforeSizes = 72, kPe32Fixed = 96, kPe32PlusFixed = 112, kPe32PlusMagic = 0x20B };
    OptionalHeader *header = &records->opt_header;
    uint64_t sizes[4];
    uint32_t narrow[6], count, fixed = kPe32PlusFixed;
    memcpy(header, raw, sizeof *header);
    if (header->Magic != kPe32PlusMagic) {
        fixed = kPe32Fixed;
        memcpy(&header->BaseOfData, raw + 24, 4); /* the two have changed places */
        memcpy(&header->ImageBase, raw + 28, 4);
        memcpy(narrow, raw + kBeforeSizes, sizeof narrow);
        for (count = 0; count < 4; ++count)
            sizes[count] = narrow[count];
        memcpy((uint8_t *)header + kBeforeSizes, sizes, sizeof sizes);
        header->LoaderFlags = narrow[4];
        header->NumberOfRvaAndSizes = narrow[5];
    }
    count = header->NumberOfRvaAndSizes;
    memcpy(records->data_dirs, raw + fixed, 8 * (size_t)(count < 16 ? count : 16));
}

int ReadRecords(FILE *file, Records *records) {
    uint8_t dos_header[64], signature[4], raw[240];
    uint32_t at, index, entry, base, span;
    SectionHeader section;
    long size;
    memset(records, 0, sizeof *records);
    records->first_section_count = 1;
    if (fseek(file, 0, SEEK_END) != 0 || (size = ftell(file)) < 0 || size > INT32_MAX)
        return 0;
    records->file_size = (int32_t)size;
    if (ReadAt(file, 0, dos_header, sizeof dos_header) != sizeof dos_header || memcmp(dos_header, "MZ", 2) != 0)
        return 0;
    memcpy(&at, dos_header + 60, 4);
    if (ReadAt(file, at, signature, 4) != 4 || memcmp(signature, "PE\0\0", 4) != 0)
        return 0;
    ReadAt(file, at + 4, &records->file_header, sizeof records->file_header);
    ReadAt(file, at + 24, raw, sizeof raw);
    Widen(raw, records);
    entry = records->opt_header.AddressOfEntryPoint;
    base = records->opt_header.BaseOfCode;
    at += 24 + records->file_header.SizeOfOptionalHeader;
    for (index = 0; index < records->file_header.NumberOfSections; ++index) {
        if (ReadAt(file, at + 40 * index, &section, sizeof section) != sizeof section)
            break;
        span = section.VirtualSize > section.SizeOfRawData ? section.VirtualSize : section.SizeOfRawData;
        if (index == 0)
            records->first_sections[0] = section;
        if (base - section.VirtualAddress < span) {
            records->first_sections[1] = section;
            records->first_section_count = index == 0 ? 1 : 2;
        }
        if (entry - section.VirtualAddress < span && section.SizeOfRawData != 0)
            ReadAt(file, section.PointerToRawData + (entry - section.VirtualAddress), records->entry_code,
                   sizeof records->entry_code);
        records->last_section = section;
    }
    return 1;
}
