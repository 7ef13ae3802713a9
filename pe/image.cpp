#include "pe/image.h"

#include <algorithm>

namespace tavrik::pe {

namespace {

using namespace optional_header;

constexpr uint8_t kMagicWidth = 2;

uint32_t LittleEndian(const uint8_t *bytes, uint8_t width) {
    uint32_t value = 0;
    for (unsigned i = width; i-- > 0;)
        value = value << 8 | bytes[i];
    return value;
}

// The bytes of memory that a section takes.
uint64_t ExtentOf(const SectionHeader &section) {
    return std::max(section.VirtualSize, section.SizeOfRawData);
}

} // namespace

std::optional<std::size_t> SectionHolding(std::span<const SectionHeader> sections, uint32_t rva) {
    for (std::size_t i = 0; i < sections.size(); ++i)
        if (rva >= sections[i].VirtualAddress && rva - sections[i].VirtualAddress < ExtentOf(sections[i]))
            return i;
    return std::nullopt;
}

Image::Image(base::FileBytes &bytes) : bytes_(bytes) {
    has_dos_header_ = bytes_.Read(0, dos_header_.data(), dos_header_.size()) &&
                      LittleEndian(dos_header_.data(), sizeof(kDosSignature)) == kDosSignature;
    if (!has_dos_header_)
        return;
    const uint32_t e_lfanew = LittleEndian(&dos_header_[kLfanewOffset], 4);
    has_signature_ = bytes_.Get<uint32_t>(e_lfanew) == kPeSignature;
    if (!has_signature_)
        return;
    signature_offset_ = e_lfanew;
    is_pe_ = ReadUpTo(uint64_t{e_lfanew} + kFileHeaderOffset, file_header_) == file_header_.size();
    if (!is_pe_)
        return;

    const uint64_t optional_header = uint64_t{e_lfanew} + kOptionalHeaderOffset;
    const std::size_t optional_size = LittleEndian(&file_header_[file_header::kSizeOfOptionalHeader], 2);
    optional_in_file_ = ReadUpTo(optional_header, optional_header_);
    optional_length_ = std::min(optional_size, optional_in_file_);
    is_plus_ = OptionalField(kMagic, kMagicWidth) == kMagicPe32Plus;
    entry_point_ = OptionalField(kAddressOfEntryPoint, 4).value_or(0);
    size_of_headers_ = OptionalField(kSizeOfHeaders, 4).value_or(0);
    image_base_ = OptionalField(kImageBase, 4).value_or(0);

    section_table_ = optional_header + optional_size;
    sections_ = ReadSectionTable(
        section_table_,
        std::min<std::size_t>(LittleEndian(&file_header_[file_header::kNumberOfSections], 2), kMostSections));
}

// Fills the block as far as the file goes; returns the bytes read.
std::size_t Image::ReadUpTo(uint64_t offset, std::span<uint8_t> block) const {
    const uint64_t rest = offset < size() ? size() - offset : 0;
    const auto length = static_cast<std::size_t>(std::min<uint64_t>(block.size(), rest));
    return bytes_.Read(offset, block.data(), length) ? length : 0;
}

std::vector<SectionHeader> Image::ReadSectionTable(uint64_t table, std::size_t most) const {
    const uint64_t rest = table < size() ? size() - table : 0;
    std::vector<SectionHeader> sections(
        static_cast<std::size_t>(std::min<uint64_t>(most, rest / sizeof(SectionHeader))));
    if (!bytes_.Read(table, sections.data(), sections.size() * sizeof(SectionHeader)))
        sections.clear();
    return sections;
}

std::optional<uint32_t> Image::DosField(uint16_t offset, uint8_t width) const {
    if (!is_pe_)
        return std::nullopt;
    return LittleEndian(&dos_header_[offset], width);
}

std::optional<uint32_t> Image::FileField(uint16_t offset, uint8_t width) const {
    if (!is_pe_)
        return std::nullopt;
    return LittleEndian(&file_header_[offset], width);
}

std::optional<uint32_t> Image::OptionalField(uint16_t offset, uint8_t width) const {
    const auto at = [this](uint16_t place, uint8_t bytes) -> std::optional<uint32_t> {
        if (place + bytes > optional_length_)
            return std::nullopt;
        return LittleEndian(&optional_header_[place], bytes);
    };
    const std::optional<uint32_t> magic = at(kMagic, kMagicWidth);
    if (offset == kMagic)
        return magic;
    if (magic != kMagicPe32 && magic != kMagicPe32Plus)
        return std::nullopt;
    if (offset >= kDirectories) {
        const auto directory = static_cast<uint32_t>(offset - kDirectories) / kDirectorySize;
        if (directory >= OptionalField(kNumberOfRvaAndSizes, 4).value_or(0))
            return std::nullopt;
    }
    if (magic == kMagicPe32)
        return at(offset, width);
    if (offset == kBaseOfData)
        return std::nullopt;
    return at(OffsetInPe32Plus(offset), width);
}

std::optional<uint32_t> Image::ImageBaseHigh() const {
    if (!is_plus_ || kImageBaseHighPlus + sizeof(uint32_t) > optional_length_)
        return std::nullopt;
    return LittleEndian(&optional_header_[kImageBaseHighPlus], 4);
}

std::optional<uint32_t> Image::DirectoryRva(Directory directory) const {
    const std::optional<uint32_t> rva =
        OptionalField(static_cast<uint16_t>(kDirectories + kDirectorySize * directory), 4);
    return rva == 0u ? std::nullopt : rva;
}

base::Region Image::RawData(std::size_t section) const {
    const uint64_t offset = sections_[section].PointerToRawData;
    if (offset >= size())
        return {};
    return {offset, std::min<uint64_t>(sections_[section].SizeOfRawData, size() - offset)};
}

std::optional<uint64_t> Image::OffsetOfRva(uint32_t rva) const {
    uint64_t offset = rva;
    if (const std::optional<std::size_t> holding = SectionHolding(rva)) {
        const SectionHeader &section = sections_[*holding];
        const uint32_t distance = rva - section.VirtualAddress;
        if (distance >= section.SizeOfRawData)
            return std::nullopt;
        offset = uint64_t{section.PointerToRawData} + distance;
    } else if (rva >= size_of_headers_) {
        return std::nullopt;
    }
    return offset < size() ? std::optional(offset) : std::nullopt;
}

std::optional<uint64_t> Image::OffsetOfAddress(uint32_t address) const {
    return address < image_base_ ? std::nullopt : OffsetOfRva(address - image_base_);
}

} // namespace tavrik::pe
