#include "scanner/pe_image.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tavrik2/bytes.h"

namespace tavrik::scanner {

using tavrik2::LoadU16;
using tavrik2::LoadU32;

namespace {

constexpr uint16_t kDosMagic = 0x5A4D;        // "MZ"
constexpr uint32_t kPeSignature = 0x00004550; // "PE", NUL, NUL
constexpr uint16_t kPe32PlusMagic = 0x20B;
constexpr std::size_t kDosHeaderSize = 64;
constexpr std::size_t kLfanewOffset = 60;

// Distances in bytes from the PE signature.
constexpr uint32_t kFileHeaderOffset = 4;
constexpr uint32_t kOptionalHeaderOffset = 24;

// The optional header without its directories.
constexpr uint32_t kPe32Size = 96;
constexpr uint32_t kPe32PlusSize = 112;
constexpr uint32_t kPe32DirectoryCountOffset = 92;
constexpr uint32_t kDirectorySize = 8;

constexpr uint32_t kLargestRounding = 512;
constexpr uint16_t kNativeSubsystem = 1;
constexpr uint32_t kEndOfAddresses = 0xFFFFFFFF;

using RawOptionalHeader = std::array<uint8_t, kPe32PlusSize>;

static_assert(sizeof(OptionalHeader) == kPe32PlusSize);

// PE32 has the same fields up to BaseOfCode and from SectionAlignment to DllCharacteristics; between them stand
// BaseOfData and ImageBase, behind them four sizes of 32 bits.
OptionalHeader WidenPe32(const RawOptionalHeader &raw) {
    constexpr std::size_t kBaseOfData = 24;
    constexpr std::size_t kImageBase = 28;
    constexpr std::size_t kReserves = 72;
    constexpr std::size_t kLoaderFlags = 88;
    OptionalHeader wide;
    std::memcpy(&wide, raw.data(), kReserves);
    wide.ImageBase = LoadU32(&raw[kImageBase]);
    wide.BaseOfData = LoadU32(&raw[kBaseOfData]);
    wide.SizeOfStackReserve = LoadU32(&raw[kReserves]);
    wide.SizeOfStackCommit = LoadU32(&raw[kReserves + 4]);
    wide.SizeOfHeapReserve = LoadU32(&raw[kReserves + 8]);
    wide.SizeOfHeapCommit = LoadU32(&raw[kReserves + 12]);
    wide.LoaderFlags = LoadU32(&raw[kLoaderFlags]);
    wide.NumberOfRvaAndSizes = LoadU32(&raw[kPe32DirectoryCountOffset]);
    return wide;
}

OptionalHeader Widen(const RawOptionalHeader &raw, bool is_pe32_plus) {
    if (!is_pe32_plus)
        return WidenPe32(raw);
    OptionalHeader wide;
    std::memcpy(&wide, raw.data(), sizeof wide);
    return wide;
}

// Only the directories that the count, the optional header's size and the file all grant.
void ReadDirectories(base::ByteSource &source, uint64_t optional_header, PeImage &image) {
    const uint32_t fixed = image.is_pe32_plus ? kPe32PlusSize : kPe32Size;
    const uint32_t declared = image.file_header.SizeOfOptionalHeader;
    // An optional header of size 0 is as long as its directories; the section table stands behind them.
    const uint32_t granted = declared == 0      ? DATA_DIRECTORY_WORDS / 2
                             : declared < fixed ? 0
                                                : (declared - fixed) / kDirectorySize;
    const uint32_t count =
        std::min({granted, uint32_t{image.opt_header.NumberOfRvaAndSizes}, uint32_t{DATA_DIRECTORY_WORDS / 2}});
    std::array<uint32_t, DATA_DIRECTORY_WORDS> raw = {};
    const std::size_t read = source.ReadAt(optional_header + fixed, raw.data(), std::size_t{count} * kDirectorySize);
    std::copy_n(raw.begin(), read / kDirectorySize * 2, image.data_dirs.begin());
}

// As the module finds it, so that both see the same table.
uint32_t SectionTableOffset(const FileHeader &header, const RawOptionalHeader &raw, uint32_t optional_header) {
    if (header.SizeOfOptionalHeader != 0)
        return optional_header + header.SizeOfOptionalHeader;
    return optional_header + kPe32Size + kDirectorySize * LoadU32(&raw[kPe32DirectoryCountOffset]);
}

void ReadSections(base::ByteSource &source, uint32_t table, PeImage &image) {
    const uint64_t rest = source.size() > table ? source.size() - table : 0;
    const std::size_t fitting =
        static_cast<std::size_t>(std::min<uint64_t>(image.file_header.NumberOfSections, rest / sizeof(SectionHeader)));
    image.sections.resize(fitting);
    const std::size_t read = source.ReadAt(table, image.sections.data(), fitting * sizeof(SectionHeader));
    image.sections.resize(read / sizeof(SectionHeader));
}

void PickSections(PeImage &image) {
    if (image.sections.empty()) {
        image.first_sections.push_back({});
        return;
    }
    image.last_section = image.sections.back();
    image.first_sections.push_back(image.sections.front());
    const std::optional<std::size_t> code = image.SectionAt(image.opt_header.BaseOfCode);
    if (code && *code != 0)
        image.first_sections.push_back(image.sections[*code]);
}

void ReadEntryCode(base::ByteSource &source, PeImage &image) {
    const std::optional<uint32_t> offset = image.FileOffset(image.opt_header.AddressOfEntryPoint);
    if (offset)
        source.ReadAt(*offset, image.entry_code.data(), image.entry_code.size());
}

// The end of a section's addresses, exclusive; clamped where it would pass 2^32.
uint32_t SpanEnd(const SectionHeader &section) {
    const uint32_t length = std::max<uint32_t>(section.VirtualSize, section.SizeOfRawData);
    const uint32_t end = section.VirtualAddress + length;
    return end < section.VirtualAddress ? kEndOfAddresses : end;
}

bool Holds(const SectionHeader &section, uint32_t rva) {
    return rva >= section.VirtualAddress && rva < SpanEnd(section);
}

uint32_t RoundingMask(uint32_t alignment) {
    return 0u - std::min(alignment, kLargestRounding);
}

} // namespace

std::optional<std::size_t> PeImage::SectionAt(uint32_t rva) const {
    for (std::size_t index = sections.size(); index-- > 0;)
        if (Holds(sections[index], rva))
            return index;
    return std::nullopt;
}

std::optional<uint32_t> PeImage::FileOffset(uint32_t rva) const {
    const uint32_t file_mask = RoundingMask(opt_header.FileAlignment);
    const bool native = opt_header.Subsystem == kNativeSubsystem;
    const auto mapped = [&](const SectionHeader &section) {
        const uint32_t base = native ? section.PointerToRawData : section.PointerToRawData & file_mask;
        return base - section.VirtualAddress + rva;
    };
    const auto find = [&](uint32_t address) {
        return std::find_if(sections.rbegin(), sections.rend(), [&](const SectionHeader &section) {
            return section.SizeOfRawData != 0 && Holds(section, address);
        });
    };

    if (const auto section = find(rva); section != sections.rend())
        return mapped(*section);
    if (last_section.SizeOfRawData != 0 && rva >= last_section.VirtualAddress && rva == SpanEnd(last_section))
        return mapped(last_section);
    const bool below_all = std::all_of(sections.begin(), sections.end(),
                                       [&](const SectionHeader &section) { return rva < section.VirtualAddress; });
    if (below_all)
        return rva;
    const uint32_t section_mask = RoundingMask(opt_header.SectionAlignment);
    if (const auto section = find(rva & section_mask); section != sections.rend())
        return mapped(*section);
    return std::nullopt;
}

PeResult ParsePe(base::ByteSource &source) {
    const auto failed = [&](const char *why) {
        return source.error().empty() ? PeResult{PeStatus::NotPe, why, {}}
                                      : PeResult{PeStatus::ReadFailed, source.error(), {}};
    };

    std::array<uint8_t, kDosHeaderSize> dos_header = {};
    if (source.ReadAt(0, dos_header.data(), dos_header.size()) < dos_header.size() ||
        LoadU16(dos_header.data()) != kDosMagic)
        return failed("not a PE file: no DOS header");

    const uint32_t e_lfanew = LoadU32(&dos_header[kLfanewOffset]);
    std::array<uint8_t, sizeof(uint32_t)> signature = {};
    if (source.ReadAt(e_lfanew, signature.data(), signature.size()) < signature.size() ||
        LoadU32(signature.data()) != kPeSignature)
        return failed("not a PE file: no PE signature where the DOS header points to");

    PeResult result;
    PeImage &image = result.image;
    image.file_size = source.size();
    source.ReadAt(uint64_t{e_lfanew} + kFileHeaderOffset, &image.file_header, sizeof image.file_header);

    RawOptionalHeader raw = {};
    const uint64_t optional_header = uint64_t{e_lfanew} + kOptionalHeaderOffset;
    source.ReadAt(optional_header, raw.data(), raw.size());
    image.is_pe32_plus = LoadU16(raw.data()) == kPe32PlusMagic;
    image.opt_header = Widen(raw, image.is_pe32_plus);
    ReadDirectories(source, optional_header, image);
    ReadSections(source, SectionTableOffset(image.file_header, raw, e_lfanew + kOptionalHeaderOffset), image);
    PickSections(image);
    ReadEntryCode(source, image);
    if (!source.error().empty())
        return failed("");
    result.status = PeStatus::Parsed;
    return result;
}

} // namespace tavrik::scanner
