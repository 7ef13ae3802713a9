/* The headers of a PE file as rules see them, and the mapping of addresses to file offsets. */
#ifndef TAVRIK_PE_IMAGE_H
#define TAVRIK_PE_IMAGE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/file_bytes.h"
#include "pe/format.h"
#include "tavrik2/section_header.h"

namespace tavrik::pe {

/** Section headers beyond these do not count. */
inline constexpr std::size_t kMostSections = 512;

/** The first section whose extent contains the RVA. */
std::optional<std::size_t> SectionHolding(std::span<const SectionHeader> sections, uint32_t rva);

/** The headers, read once for rules and locators. Nothing is allocated but for the sections. */
class Image {
public:
    /** Reads the headers of a file of any content; `bytes` must outlive the object. */
    explicit Image(base::FileBytes &bytes);

    /** Whether the file is a PE file with a whole file header. Otherwise every field, directory and section is absent.
     */
    bool IsPe() const { return is_pe_; }

    /** Whether the optional header is that of a 64-bit image. */
    bool IsPe32Plus() const { return is_plus_; }

    base::FileBytes &bytes() const { return bytes_; }
    uint64_t size() const { return bytes_.size(); }

    /** `width` (1, 2, 4) bytes at `offset` in the DOS header, the file header or the optional header, widened. Those of
     * the optional header are asked by the offset in a 32-bit one. */
    std::optional<uint32_t> DosField(uint16_t offset, uint8_t width) const;
    std::optional<uint32_t> FileField(uint16_t offset, uint8_t width) const;
    std::optional<uint32_t> OptionalField(uint16_t offset, uint8_t width) const;

    /** The high half of a 64-bit image's ImageBase; nothing in a 32-bit image. */
    std::optional<uint32_t> ImageBaseHigh() const;

    /** Fields that others build on; absent ones are 0. */
    uint32_t e_lfanew() const { return is_pe_ ? signature_offset_ : 0; } // not beyond the file
    uint32_t AddressOfEntryPoint() const { return entry_point_; }
    uint32_t SizeOfHeaders() const { return size_of_headers_; }
    uint32_t ImageBase() const { return image_base_; }

    /** The address of a data directory; nothing when the directory is absent or its address is 0. */
    std::optional<uint32_t> DirectoryRva(Directory directory) const;

    /** The headers that count, in the order of the table. */
    std::span<const SectionHeader> sections() const { return sections_; }

    /** The first section whose extent contains the RVA. */
    std::optional<std::size_t> SectionHolding(uint32_t rva) const { return pe::SectionHolding(sections_, rva); }

    /** A section's raw data, cut at the end of the file. */
    base::Region RawData(std::size_t section) const;

    /** The file offset of an RVA, and of a virtual address in the image. */
    std::optional<uint64_t> OffsetOfRva(uint32_t rva) const;
    std::optional<uint64_t> OffsetOfAddress(uint32_t address) const;

    // What the fields above are read from, for readers with other bounds.

    /** Whether a whole DOS header with its signature is there, and the PE signature where it points to. */
    bool HasDosHeader() const { return has_dos_header_; }
    bool HasSignature() const { return has_signature_; }

    /** The file offset of the PE signature; 0 without one. */
    uint32_t SignatureOffset() const { return signature_offset_; }

    /** The bytes at the places of the file header and of the optional header, whatever SizeOfOptionalHeader says; zeros
     * where the file ends. */
    std::span<const uint8_t, kFileHeaderSize> FileHeaderBytes() const { return file_header_; }
    std::span<const uint8_t, WholeOptionalHeaderSize(true)> OptionalHeaderBytes() const { return optional_header_; }

    /** How many of OptionalHeaderBytes() are in the file. */
    std::size_t OptionalBytesInFile() const { return optional_in_file_; }

    /** The file offset after SizeOfOptionalHeader bytes of the optional header; 0 when IsPe() is false. */
    uint64_t SectionTableOffset() const { return section_table_; }

    /** Reads a section table at a file offset: the headers that lie in the file as a whole, at most `most`. */
    std::vector<SectionHeader> ReadSectionTable(uint64_t table, std::size_t most) const;

private:
    std::size_t ReadUpTo(uint64_t offset, std::span<uint8_t> block) const;

    base::FileBytes &bytes_;
    bool has_dos_header_ = false;
    bool has_signature_ = false;
    bool is_pe_ = false;
    bool is_plus_ = false;
    uint32_t signature_offset_ = 0;
    uint32_t entry_point_ = 0;
    uint32_t size_of_headers_ = 0;
    uint32_t image_base_ = 0;
    std::array<uint8_t, kDosHeaderSize> dos_header_ = {};
    std::array<uint8_t, kFileHeaderSize> file_header_ = {};
    std::array<uint8_t, WholeOptionalHeaderSize(true)> optional_header_ = {};
    std::size_t optional_in_file_ = 0;
    std::size_t optional_length_ = 0; // bytes of it that count
    uint64_t section_table_ = 0;
    std::vector<SectionHeader> sections_;
};

} // namespace tavrik::pe

#endif
