/* The headers of a PE file, as far as the module reads them from the file itself. */
#ifndef TAVRIK_TESTS_SUPPORT_PE_FILE_H
#define TAVRIK_TESTS_SUPPORT_PE_FILE_H

#include <cstring>
#include <string_view>
#include <vector>

#include "tavrik2/section_header.h"
#include "tests/support/recording_stream.h"

namespace tavrik::tests {

inline SectionHeader Section(std::string_view name, uint32_t address, uint32_t virtual_size, uint32_t raw_pointer,
                             uint32_t raw_size, uint32_t characteristics = 0) {
    SectionHeader section = {};
    std::memcpy(section.Name, name.data(), name.size());
    section.VirtualSize = virtual_size;
    section.VirtualAddress = address;
    section.SizeOfRawData = raw_size;
    section.PointerToRawData = raw_pointer;
    section.Characteristics = characteristics;
    return section;
}

/** With the defaults, the section table is at 0x178. */
struct PeFile {
    std::vector<SectionHeader> sections;
    uint32_t lfanew = 0x80;
    uint16_t optional_header_size = 0xE0;
    uint32_t section_alignment = 0x1000;
    uint32_t file_alignment = 0x200;
    uint16_t subsystem = 2;
    uint32_t directory_count = 16;
    uint32_t table_offset = 0x178;

    /** Writes the headers; bytes between them stay as they are. */
    void PutInto(RecordingStream &stream) const {
        stream.Put(60, Bytes(lfanew));
        stream.Put(lfanew + 6, Bytes(static_cast<uint16_t>(sections.size())));
        stream.Put(lfanew + 20, Bytes(optional_header_size));
        stream.Put(lfanew + 24 + 32, Bytes(section_alignment));
        stream.Put(lfanew + 24 + 36, Bytes(file_alignment));
        stream.Put(lfanew + 24 + 68, Bytes(subsystem));
        stream.Put(lfanew + 24 + 92, Bytes(directory_count));
        for (size_t index = 0; index < sections.size(); ++index)
            stream.Put(table_offset + 40 * static_cast<uint32_t>(index), Bytes(sections[index]));
    }
};

} // namespace tavrik::tests

#endif
