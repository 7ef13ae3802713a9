#include "scanner/host_records.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "pe/format.h"
#include "tavrik2/bytes.h"

namespace tavrik::scanner {

using tavrik2::LoadU32;

namespace {

constexpr uint32_t kPe32Size = pe::OptionalFieldOffset(pe::optional_header::kDirectories, false);
constexpr uint32_t kPe32PlusSize = pe::OptionalFieldOffset(pe::optional_header::kDirectories, true);

constexpr uint32_t kLargestRounding = 512;
constexpr uint16_t kNativeSubsystem = 1;
constexpr uint32_t kEndOfAddresses = 0xFFFFFFFF;

static_assert(sizeof(FileHeader) == pe::kFileHeaderSize);
static_assert(sizeof(OptionalHeader) == kPe32PlusSize);
static_assert(DATA_DIRECTORY_WORDS * sizeof(uint32_t) == pe::kDirectoryCount * pe::kDirectorySize);

// PE32 has the same fields up to BaseOfCode and from SectionAlignment to DllCharacteristics; between them are
// BaseOfData and ImageBase, after them four sizes of 32 bits.
OptionalHeader WidenPe32(const uint8_t *raw) {
    using namespace pe::optional_header;
    OptionalHeader wide;
    std::memcpy(&wide, raw, kSizeOfStackReserve);
    wide.ImageBase = LoadU32(raw + kImageBase);
    wide.BaseOfData = LoadU32(raw + kBaseOfData);
    wide.SizeOfStackReserve = LoadU32(raw + kSizeOfStackReserve);
    wide.SizeOfStackCommit = LoadU32(raw + kSizeOfStackCommit);
    wide.SizeOfHeapReserve = LoadU32(raw + kSizeOfHeapReserve);
    wide.SizeOfHeapCommit = LoadU32(raw + kSizeOfHeapCommit);
    wide.LoaderFlags = LoadU32(raw + kLoaderFlags);
    wide.NumberOfRvaAndSizes = LoadU32(raw + kNumberOfRvaAndSizes);
    return wide;
}

OptionalHeader Widen(const uint8_t *raw, bool is_pe32_plus) {
    if (!is_pe32_plus)
        return WidenPe32(raw);
    OptionalHeader wide;
    std::memcpy(&wide, raw, sizeof wide);
    return wide;
}

// Only the directories that the count, the optional header's size and the file all grant.
void CopyDirectories(const pe::Image &image, HostRecords &records) {
    const uint32_t fixed = records.is_pe32_plus ? kPe32PlusSize : kPe32Size;
    const uint32_t declared = records.file_header.SizeOfOptionalHeader;
    // An optional header of size 0 is as long as its directories; the section table follows them.
    const uint32_t granted = declared == 0      ? pe::kDirectoryCount
                             : declared < fixed ? 0
                                                : (declared - fixed) / pe::kDirectorySize;
    const auto in_file = static_cast<uint32_t>(image.OptionalBytesInFile());
    const uint32_t whole = in_file < fixed ? 0 : (in_file - fixed) / pe::kDirectorySize;
    const uint32_t count =
        std::min({granted, uint32_t{records.opt_header.NumberOfRvaAndSizes}, whole, pe::kDirectoryCount});
    std::memcpy(records.data_dirs.data(), image.OptionalHeaderBytes().data() + fixed, count * pe::kDirectorySize);
}

// As the module finds it, so that both see the same table; offsets are 32 bits wide.
uint32_t SectionTableOffset(const pe::Image &image, uint16_t size_of_optional_header) {
    const uint32_t optional_header = image.SignatureOffset() + pe::kOptionalHeaderOffset;
    if (size_of_optional_header != 0)
        return optional_header + size_of_optional_header;
    const uint8_t *raw = image.OptionalHeaderBytes().data();
    return optional_header + kPe32Size + pe::kDirectorySize * LoadU32(raw + pe::optional_header::kNumberOfRvaAndSizes);
}

void CopySections(const pe::Image &image, HostRecords &records) {
    const uint32_t table = SectionTableOffset(image, records.file_header.SizeOfOptionalHeader);
    const uint16_t count = records.file_header.NumberOfSections;
    records.headers_end = table + uint64_t{count} * sizeof(SectionHeader);
    // The rules' headers are the same ones, unless they are taken from another place or end at their bound.
    if (image.IsPe() && table == image.SectionTableOffset() && count <= pe::kMostSections)
        records.sections.assign(image.sections().begin(), image.sections().end());
    else
        records.sections = image.ReadSectionTable(table, count);
}

void PickSections(HostRecords &records) {
    if (records.sections.empty()) {
        records.first_sections.push_back({});
        return;
    }
    records.last_section = records.sections.back();
    records.first_sections.push_back(records.sections.front());
    const std::optional<std::size_t> code = records.SectionAt(records.opt_header.BaseOfCode);
    if (code && *code != 0)
        records.first_sections.push_back(records.sections[*code]);
}

void CopyEntryCode(const pe::Image &image, HostRecords &records) {
    const std::optional<uint32_t> offset = records.FileOffset(records.opt_header.AddressOfEntryPoint);
    if (!offset || *offset >= image.size())
        return;
    const uint64_t length = std::min<uint64_t>(records.entry_code.size(), image.size() - *offset);
    image.bytes().Read(*offset, records.entry_code.data(), static_cast<std::size_t>(length));
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

std::optional<std::size_t> HostRecords::SectionAt(uint32_t rva) const {
    for (std::size_t index = sections.size(); index-- > 0;)
        if (Holds(sections[index], rva))
            return index;
    return std::nullopt;
}

std::optional<uint32_t> HostRecords::FileOffset(uint32_t rva) const {
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

PeResult MakeHostRecords(const pe::Image &image, const base::ByteSource &source) {
    const auto failed = [&](const char *why) {
        return source.error().empty() ? PeResult{PeStatus::NotPe, why, {}}
                                      : PeResult{PeStatus::ReadFailed, source.error(), {}};
    };
    if (!image.HasDosHeader())
        return failed("not a PE file: no DOS header");
    if (!image.HasSignature())
        return failed("not a PE file: no PE signature where the DOS header points to");

    PeResult result;
    HostRecords &records = result.records;
    records.file_size = image.size();
    std::memcpy(&records.file_header, image.FileHeaderBytes().data(), sizeof records.file_header);
    const uint8_t *raw = image.OptionalHeaderBytes().data();
    records.is_pe32_plus = tavrik2::LoadU16(raw + pe::optional_header::kMagic) == pe::kMagicPe32Plus;
    records.opt_header = Widen(raw, records.is_pe32_plus);
    CopyDirectories(image, records);
    CopySections(image, records);
    PickSections(records);
    CopyEntryCode(image, records);
    if (!source.error().empty())
        return failed("");
    result.status = PeStatus::Parsed;
    return result;
}

} // namespace tavrik::scanner
