/* Builds PE files from a description: what the description leaves open is computed, so that a few lines make a
 * well-formed file, and what it sets is in the file as it was set.
 *
 *     PeImage image;
 *     image.headers.MajorLinkerVersion = 6;
 *     image.headers.SizeOfCode = 0x7BE00; // headers may declare what they like
 *     image.sections.push_back({.name = ".text", .Characteristics = kCodeSection, .pieces = {code}});
 *     image.sections.push_back({.name = ".rsrc", .Characteristics = kDataSection, .pieces = {resources}});
 *     const PeFile file = image.Build();
 */
#ifndef TAVRIK_PE_BUILDER_BUILDER_H
#define TAVRIK_PE_BUILDER_BUILDER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/byte_writer.h"
#include "pe/builder/tables.h"
#include "pe/format.h"
#include "tavrik2/section_header.h"

namespace tavrik::pe::builder {

/** Section characteristics as compilers and packers set them. */
inline constexpr uint32_t kCodeSection = section_flag::kCode | section_flag::kExecute | section_flag::kRead;
inline constexpr uint32_t kDataSection = section_flag::kInitializedData | section_flag::kRead;
inline constexpr uint32_t kWritableSection = kDataSection | section_flag::kWrite;
inline constexpr uint32_t kDiscardableSection = kDataSection | section_flag::kDiscardable;
inline constexpr uint32_t kPackedHole =
    section_flag::kUninitializedData | section_flag::kExecute | section_flag::kRead | section_flag::kWrite;
inline constexpr uint32_t kPackedCode = kWritableSection | section_flag::kExecute;

/** A part of a section's contents. Tables set their data directories; bytes do so when `directory` names one. */
struct Piece {
    std::variant<base::Bytes, ResourceTable, ImportTable, ExportTable> content;
    std::optional<uint32_t> offset = {}; // into the section; by default after the piece before, on 16 bytes
    std::optional<Directory> directory = {};
};

/** A section. Sizes and addresses that are not set follow from the contents and the sections before. */
struct Section {
    std::string name; // at most 8 characters
    uint32_t Characteristics = kDataSection;
    std::optional<uint32_t> VirtualSize = {}; // by default up to the next section's address when that is set
    std::optional<uint32_t> VirtualAddress = {};
    std::optional<uint32_t> SizeOfRawData = {};
    std::optional<uint32_t> PointerToRawData = {};
    std::vector<Piece> pieces = {};
};

/** Both headers' fields. Optional ones are computed when they are not set. */
struct Headers {
    // The file header; by default Machine is that of the image's kind.
    std::optional<uint16_t> Machine;
    std::optional<uint16_t> NumberOfSections;
    uint32_t TimeDateStamp = 0x4D000000;
    uint32_t PointerToSymbolTable = 0;
    uint32_t NumberOfSymbols = 0;
    uint16_t Characteristics = file_flag::kExecutableImage | file_flag::k32BitMachine;
    // The optional header. The sizes and bases are by default those of the sections; BaseOfData exists in PE32 only.
    uint8_t MajorLinkerVersion = 14;
    uint8_t MinorLinkerVersion = 29;
    std::optional<uint32_t> SizeOfCode;
    std::optional<uint32_t> SizeOfInitializedData;
    std::optional<uint32_t> SizeOfUninitializedData;
    std::optional<uint32_t> AddressOfEntryPoint; // by default the first code section's address, with entry code
    std::optional<uint32_t> BaseOfCode;
    std::optional<uint32_t> BaseOfData;
    uint64_t ImageBase = 0x400000;
    uint32_t SectionAlignment = 0x1000;
    uint32_t FileAlignment = 0x200;
    uint16_t MajorOperatingSystemVersion = 6;
    uint16_t MinorOperatingSystemVersion = 0;
    uint16_t MajorImageVersion = 0;
    uint16_t MinorImageVersion = 0;
    uint16_t MajorSubsystemVersion = 6;
    uint16_t MinorSubsystemVersion = 0;
    uint32_t Win32VersionValue = 0;
    std::optional<uint32_t> SizeOfImage;
    std::optional<uint32_t> SizeOfHeaders;
    uint32_t CheckSum = 0;
    uint16_t Subsystem = 2;
    uint16_t DllCharacteristics = 0;
    uint64_t SizeOfStackReserve = 0x100000;
    uint64_t SizeOfStackCommit = 0x1000;
    uint64_t SizeOfHeapReserve = 0x100000;
    uint64_t SizeOfHeapCommit = 0x1000;
    uint32_t LoaderFlags = 0;
    uint32_t NumberOfRvaAndSizes = kDirectoryCount; // declared; the file always has the 16
};

/** Overrides parts of a data directory, whether or not a table has set it. */
struct DirectoryFields {
    std::optional<uint32_t> VirtualAddress;
    std::optional<uint32_t> Size;
};

/** A built file and the section headers in it. */
struct PeFile {
    base::Bytes bytes;
    std::vector<SectionHeader> sections;

    uint32_t size() const { return static_cast<uint32_t>(bytes.size()); }

    /** The header of that name; throws std::out_of_range when there is none. */
    const SectionHeader &SectionNamed(const std::string &name) const;

    /** The file offset of an address in some section's raw data; throws std::out_of_range when no section has it. */
    uint32_t OffsetOf(uint32_t rva) const;

    /** The file offset just past the raw data of the section at `index`. */
    uint32_t RawEnd(std::size_t index) const;

    /** Appends zeros until the file has at least `size` bytes. */
    void GrowTo(uint32_t size);

    /** Writes `payload` at a file offset after the headers, growing the file as needed. Throws std::invalid_argument
     * when anything but zeros is there already. */
    void Plant(uint32_t offset, const base::Bytes &payload);
};

/** The DOS header's words before e_lfanew, as linkers write them. */
using DosHeader = std::array<uint16_t, 30>;
inline constexpr DosHeader kUsualDosHeader = {kDosSignature, 0x90, 3, 0, 4, 0, 0xFFFF, 0, 0xB8, 0, 0, 0, 0x40};

/** A DOS stub that prints `text`, which ends with '$', and ends. */
inline constexpr std::string_view kUsualDosStubText = "This program cannot be run in DOS mode.\r\r\n$";
base::Bytes MakeDosStub(std::string_view text);

/** The description of an image. */
struct PeImage {
    bool is_pe32_plus = false;
    Headers headers;
    DosHeader dos_header = kUsualDosHeader;
    base::Bytes dos_stub; // after the 64-byte DOS header; empty for the usual one
    std::array<DirectoryFields, kDirectoryCount> directories;
    std::vector<Section> sections;
    base::Bytes entry_code; // put at the entry point, over what the section holds there
    base::Bytes overlay;    // after the last raw data

    /** The file. Throws std::invalid_argument, with a sentence that names the contradiction, when the description
     * cannot be met: overlapping sections, contents larger than their section, an entry point without raw data. */
    PeFile Build() const;
};

} // namespace tavrik::pe::builder

#endif
