#include "database/generator/image_facts.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "pe/format.h"
#include "rules/numbers.h"
#include "rules/vb_format.h"

namespace tavrik::generator {
namespace {

using rules::FindField;
using rules::HeaderFields;
using rules::Origin;
using rules::RegionKind;
using rules::SectionRole;

using pe::kFileHeaderOffset;
using pe::kOptionalHeaderOffset;

namespace field = rules::header_field;

namespace vb = rules::vb;

} // namespace

ImageFacts::ImageFacts(std::span<const uint8_t> file) : file_(file) {
    headers_ = Read(pe::kLfanewOffset, 4).value_or(0);
    is_plus_ = Read(headers_ + kOptionalHeaderOffset, 2) == pe::kMagicPe32Plus;
    const uint32_t table = headers_ + kOptionalHeaderOffset + Header(field::kSizeOfOptionalHeader).value_or(0);
    for (uint32_t i = 0; i < Header(field::kNumberOfSections).value_or(0); ++i) {
        SectionHeader section;
        if (table + (i + 1) * sizeof section > file_.size())
            break;
        std::memcpy(&section, file_.data() + table + i * sizeof section, sizeof section);
        sections_.push_back(section);
    }
    ReadImports();
    ReadResources();
    if (const auto entry = Header(field::kEntryPointOffset); entry && !is_plus_) {
        constexpr uint8_t kPush = 0x68;
        constexpr uint8_t kCall = 0xE8;
        if (Read(*entry, 1) == kPush && Read(*entry + 5, 1) == kCall)
            if (const auto header = OffsetOfAddress(Read(*entry + 1, 4)); header && Read(*header, 4) == vb::kSignature)
                vb_header_ = *header;
    }
}

std::optional<uint32_t> ImageFacts::Read(uint64_t offset, uint32_t width) const {
    if (offset + width > file_.size())
        return std::nullopt;
    uint32_t value = 0;
    std::memcpy(&value, file_.data() + offset, width);
    return value;
}

std::string ImageFacts::TextAt(uint32_t offset) const {
    const auto begin = file_.begin() + offset;
    return std::string(begin, std::find(begin, file_.end(), uint8_t{0}));
}

std::optional<uint32_t> ImageFacts::Header(uint32_t number) const {
    const rules::Field &field = *FindField(HeaderFields(), number);
    switch (field.origin) {
    case Origin::DosHeader:
        return Read(field.offset, field.width);
    case Origin::FileHeader:
        return Read(headers_ + kFileHeaderOffset + field.offset, field.width);
    case Origin::OptionalHeader:
        return OptionalField(field);
    case Origin::Derived:
        return Derived(number);
    default:
        break;
    }
    const auto base = VisualBasicBase(field.origin);
    if (!base)
        return std::nullopt;
    if (field.origin == Origin::VbForm && Header(field::kVbFormCount) == 0U)
        return std::nullopt;
    if (field.origin == Origin::VbExternals &&
        field.offset / vb::kExternalSize >= Header(field::kVbExternalCount).value_or(0))
        return std::nullopt;
    return Read(uint64_t{*base} + field.offset, field.width);
}

// 64-bit images have an ImageBase and four sizes of 8 bytes, and no BaseOfData.
std::optional<uint32_t> ImageFacts::OptionalField(const rules::Field &field) const {
    if (is_plus_ && field.number == field::kBaseOfData)
        return std::nullopt;
    const uint32_t offset = pe::OptionalFieldOffset(field.offset, is_plus_);
    if (offset + field.width > Header(field::kSizeOfOptionalHeader).value_or(0))
        return std::nullopt;
    if (field.number >= field::kExportTable &&
        (field.number - field::kExportTable) / 2U >= Header(field::kNumberOfRvaAndSizes).value_or(0))
        return std::nullopt;
    return Read(headers_ + kOptionalHeaderOffset + offset, field.width);
}

std::optional<uint32_t> ImageFacts::SectionHolding(std::optional<uint32_t> rva) const {
    if (!rva)
        return std::nullopt;
    for (uint32_t i = 0; i < sections_.size(); ++i) {
        const SectionHeader &section = sections_[i];
        const uint32_t virtual_size = section.VirtualSize;
        const uint32_t raw_size = section.SizeOfRawData;
        if (*rva >= section.VirtualAddress && *rva - section.VirtualAddress < std::max(virtual_size, raw_size))
            return i;
    }
    return std::nullopt;
}

std::optional<uint32_t> ImageFacts::OffsetOfRva(uint32_t rva) const {
    std::optional<uint32_t> offset;
    if (const auto index = SectionHolding(rva)) {
        const SectionHeader &section = sections_[*index];
        if (rva - section.VirtualAddress < section.SizeOfRawData)
            offset = rva - section.VirtualAddress + section.PointerToRawData;
    } else if (rva < Header(field::kSizeOfHeaders).value_or(0)) {
        offset = rva;
    }
    return offset && *offset < file_.size() ? offset : std::nullopt;
}

std::optional<uint32_t> ImageFacts::OffsetOfAddress(std::optional<uint32_t> address) const {
    const uint32_t base = Header(field::kImageBase).value_or(0);
    return address && *address >= base ? OffsetOfRva(*address - base) : std::nullopt;
}

uint32_t ImageFacts::OverlayOffset() const {
    uint64_t end = Header(field::kSizeOfHeaders).value_or(0);
    for (const SectionHeader &section : sections_)
        if (section.SizeOfRawData != 0)
            end = std::max(end, uint64_t{section.PointerToRawData} + section.SizeOfRawData);
    return static_cast<uint32_t>(std::min<uint64_t>(end, file_.size()));
}

std::optional<uint32_t> ImageFacts::Derived(uint32_t number) const {
    const std::optional<uint32_t> entry =
        Header(field::kAddressOfEntryPoint) == 0U ? std::nullopt : Header(field::kAddressOfEntryPoint);
    const auto size = static_cast<uint32_t>(file_.size());
    switch (number) {
    case field::kFileSize:
        return size;
    case field::kOverlayOffset:
        return OverlayOffset();
    case field::kOverlaySize:
        return size - OverlayOffset();
    case field::kEntryPointOffset:
        return entry ? OffsetOfRva(*entry) : std::nullopt;
    case field::kEntryPointSection:
        return SectionHolding(entry);
    case field::kEntryPointDelta: {
        const auto section = SectionHolding(entry);
        return section ? std::optional(*entry - sections_[*section].VirtualAddress) : std::nullopt;
    }
    case field::kEntryBytes0:
    case field::kEntryBytes4: {
        const auto offset = entry ? OffsetOfRva(*entry) : std::nullopt;
        return offset ? Read(uint64_t{*offset} + 4 * (number - field::kEntryBytes0), 4) : std::nullopt;
    }
    case field::kImportModuleCount:
        return static_cast<uint32_t>(imports_.size());
    case field::kImportFunctionCount: {
        std::size_t count = 0;
        for (const ImportFacts &import : imports_)
            count += import.functions.size();
        return static_cast<uint32_t>(count);
    }
    case field::kExportNameCount: {
        constexpr uint32_t kNumberOfNames = 4 * pe::export_directory::kNumberOfNames;
        const auto directory = OffsetOfRva(Header(field::kExportTable).value_or(0));
        return Header(field::kExportTable).value_or(0) != 0 && directory ? Read(*directory + kNumberOfNames, 4) : 0;
    }
    case field::kResourceCount:
        return static_cast<uint32_t>(resources_.size());
    case field::kImageBaseHigh:
        return is_plus_ ? Read(headers_ + kOptionalHeaderOffset + pe::optional_header::kImageBaseHighPlus, 4)
                        : std::nullopt;
    case field::kClrFlags: {
        const uint32_t rva = Header(field::kClrRuntimeHeader).value_or(0);
        const auto header = rva != 0 ? OffsetOfRva(rva) : std::nullopt;
        return header ? Read(*header + pe::kClrFlagsOffset, 4) : std::nullopt;
    }
    case field::kVbHeaderOffset:
        return vb_header_ != 0 ? std::optional(vb_header_) : std::nullopt;
    default:
        return RichValue(number);
    }
}

std::optional<uint32_t> ImageFacts::RichValue(uint32_t number) const {
    using namespace pe::rich;
    constexpr uint32_t kFirst = pe::kDosHeaderSize;
    uint32_t end = headers_ >= kEndSize ? (headers_ - kEndSize) / 4 * 4 : 0;
    while (end >= kFirst && Read(end, 4) != kEndMark)
        end -= 4;
    if (end < kFirst)
        return std::nullopt;
    const uint32_t key = Read(end + 4, 4).value_or(0);
    if (number == field::kRichOffset)
        return end;
    if (number == field::kRichKey)
        return key;
    uint32_t start = end - 4;
    while (start >= kFirst && Read(start, 4) != (kStartMark ^ key))
        start -= 4;
    if (start < kFirst || end < start + kHeaderSize || (end - start - kHeaderSize) % kEntrySize != 0)
        return std::nullopt;
    const uint32_t count = (end - start - kHeaderSize) / kEntrySize;
    if (number == field::kRichCount)
        return count;
    return count != 0 ? std::optional(Read(end - kEntrySize, 4).value_or(0) ^ key) : std::nullopt;
}

std::optional<uint32_t> ImageFacts::VisualBasicBase(Origin origin) const {
    if (vb_header_ == 0)
        return std::nullopt;
    switch (origin) {
    case Origin::VbHeader:
        return vb_header_;
    case Origin::VbProject:
        return OffsetOfAddress(Header(field::kVbProjectData));
    case Origin::VbObjectTable:
        return OffsetOfAddress(Header(field::kVbObjectTable));
    case Origin::VbComData:
        return OffsetOfAddress(Header(field::kVbComRegisterData));
    case Origin::VbProject2:
        return OffsetOfAddress(Header(field::kVbProject2));
    case Origin::VbForm:
        return OffsetOfAddress(Header(field::kVbFormTable));
    case Origin::VbExternals:
        return OffsetOfAddress(Header(field::kVbExternalTable));
    default:
        return std::nullopt;
    }
}

uint32_t ImageFacts::ObjectCount() const {
    return Header(field::kVbTotalObjects).value_or(0);
}

std::optional<uint32_t> ImageFacts::ObjectField(uint32_t object, uint32_t number) const {
    const rules::Field &field = *FindField(rules::ObjectFields(), number);
    const auto array = OffsetOfAddress(Header(field::kVbObjectArray));
    if (!array || object >= ObjectCount())
        return std::nullopt;
    const uint32_t descriptor = *array + vb::kObjectSize * object;
    if (field.origin == Origin::VbObject)
        return Read(descriptor + field.offset, field.width);
    const auto info = OffsetOfAddress(Read(descriptor, 4));
    if (!info)
        return std::nullopt;
    if (field.origin == Origin::VbObjectInfo)
        return Read(*info + field.offset, field.width);
    if ((ObjectField(object, rules::object_field::kObjectType).value_or(0) & vb::kHasOptionalInfo) == 0)
        return std::nullopt;
    return Read(*info + vb::kObjectInfoSize + field.offset, field.width);
}

std::optional<uint32_t> ImageFacts::SectionOf(uint16_t selector) const {
    const auto count = static_cast<uint32_t>(sections_.size());
    const auto directory = [&](uint32_t field) {
        const uint32_t rva = Header(field).value_or(0);
        return rva != 0 ? SectionHolding(rva) : std::nullopt;
    };
    if (selector < rules::kFirstNameOnlyRole)
        return selector < count ? std::optional<uint32_t>(selector) : std::nullopt;
    switch (static_cast<SectionRole>(selector)) {
    case SectionRole::Last:
        return count > 0 ? std::optional(count - 1) : std::nullopt;
    case SectionRole::Entry:
        return Derived(field::kEntryPointSection);
    case SectionRole::Code:
        return SectionHolding(Header(field::kBaseOfCode));
    case SectionRole::Data:
        return SectionHolding(Header(field::kBaseOfData));
    case SectionRole::Import:
        return directory(field::kImportTable);
    case SectionRole::Resource:
        return directory(field::kResourceTable);
    case SectionRole::Export:
        return directory(field::kExportTable);
    case SectionRole::Relocation:
        return directory(field::kBaseRelocationTable);
    case SectionRole::Tls:
        return directory(field::kTlsTable);
    case SectionRole::Largest: {
        const auto largest = std::ranges::max_element(
            sections_, {}, [](const SectionHeader &section) { return uint32_t{section.SizeOfRawData}; });
        return largest != sections_.end() ? std::optional(static_cast<uint32_t>(largest - sections_.begin()))
                                          : std::nullopt;
    }
    case SectionRole::NextToLast:
        return count > 1 ? std::optional(count - 2) : std::nullopt;
    default:
        return std::nullopt;
    }
}

uint32_t ImageFacts::SectionValue(uint32_t section, uint8_t number) const {
    const rules::Field &field = *FindField(rules::SectionFields(), number);
    uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const uint8_t *>(&sections_[section]) + field.offset, field.width);
    return value;
}

std::string ImageFacts::SectionName(uint32_t section) const {
    const auto *name = reinterpret_cast<const char *>(sections_[section].Name);
    return std::string(name, strnlen(name, sizeof sections_[section].Name));
}

Stretch ImageFacts::RawData(uint32_t section) const {
    const uint32_t start = sections_[section].PointerToRawData;
    const uint32_t size = sections_[section].SizeOfRawData;
    if (start >= file_.size())
        return {};
    return {start, std::min(size, static_cast<uint32_t>(file_.size()) - start)};
}

Stretch ImageFacts::StringRegion(uint8_t kind, uint32_t index, const std::string &name) const {
    return RegionAt(rules::RegionOfString(kind), index, name);
}

Stretch ImageFacts::MeasureRegion(uint8_t code, uint32_t index) const {
    return RegionAt(rules::RegionOfMeasure(code), index, {});
}

Stretch ImageFacts::RegionAt(rules::CodedRegion region, uint32_t index, const std::string &name) const {
    const auto section = [&](std::optional<uint32_t> position) { return position ? RawData(*position) : Stretch{}; };
    const auto size = static_cast<uint32_t>(file_.size());
    const Stretch headers = {0, std::min(Header(field::kSizeOfHeaders).value_or(0), size)};
    switch (region.kind) {
    case RegionKind::None:
        return {};
    case RegionKind::File:
        return {0, size};
    case RegionKind::Headers:
        return headers;
    case RegionKind::Overlay:
        return {OverlayOffset(), size - OverlayOffset()};
    case RegionKind::EntryCode: {
        const auto entry = Derived(field::kEntryPointOffset);
        const auto holding = Derived(field::kEntryPointSection);
        const Stretch around = holding ? RawData(*holding) : headers;
        return entry ? Stretch{*entry, around.offset + around.size - *entry} : Stretch{};
    }
    case RegionKind::RoleSection:
        return section(SectionOf(static_cast<uint16_t>(region.role)));
    case RegionKind::IndexedSection:
        return index < sections_.size() ? RawData(index) : Stretch{};
    case RegionKind::NamedSection:
        for (uint32_t i = 0; i < sections_.size(); ++i)
            if (SectionName(i) == name)
                return RawData(i);
        return {};
    case RegionKind::ResourceData:
        return index < resources_.size() ? resources_[index].data : Stretch{};
    case RegionKind::DosStub:
        return headers_ > pe::kDosHeaderSize ? Stretch{pe::kDosHeaderSize, headers_ - pe::kDosHeaderSize} : Stretch{};
    case RegionKind::VisualBasic:
        return VisualBasicRegion();
    }
    return {};
}

Stretch ImageFacts::VisualBasicRegion() const {
    for (uint32_t i = 0; i < sections_.size() && vb_header_ != 0; ++i) {
        const Stretch raw = RawData(i);
        if (vb_header_ >= raw.offset && vb_header_ - raw.offset < raw.size)
            return {vb_header_, raw.offset + raw.size - vb_header_};
    }
    return {};
}

void ImageFacts::ReadImports() {
    using pe::import_descriptor::kSize;
    constexpr uint32_t kName = 4 * pe::import_descriptor::kName;
    const uint32_t rva = Header(field::kImportTable).value_or(0);
    auto descriptor = rva != 0 ? OffsetOfRva(rva) : std::nullopt;
    for (; descriptor && Read(*descriptor + kName, 4).value_or(0) != 0; *descriptor += kSize) {
        ImportFacts import{*descriptor, TextAt(*OffsetOfRva(*Read(*descriptor + kName, 4))), {}};
        uint32_t thunk = OffsetOfRva(Read(*descriptor, 4).value_or(0)).value_or(0);
        const uint32_t width = pe::ThunkSize(is_plus_);
        for (; Read(thunk, 4).value_or(0) != 0 || (is_plus_ && Read(thunk + 4, 4).value_or(0) != 0); thunk += width) {
            const bool by_ordinal = (*Read(thunk + width - 4, 4) & 0x80000000) != 0;
            const uint32_t value = *Read(thunk, 4);
            import.functions.push_back(by_ordinal ? "#" + std::to_string(value & pe::kThunkOrdinalMask)
                                                  : TextAt(*OffsetOfRva(value) + pe::kHintSize));
        }
        imports_.push_back(std::move(import));
    }
}

void ImageFacts::ReadResources() {
    const uint32_t rva = Header(field::kResourceTable).value_or(0);
    const auto root = rva != 0 ? OffsetOfRva(rva) : std::nullopt;
    ResourceFacts path;
    if (root)
        ReadResourceLevel(*root, *root, 0, path);
}

void ImageFacts::ReadResourceLevel(uint32_t root, uint32_t directory, uint32_t level, ResourceFacts &path) {
    using namespace pe::resource_directory;
    constexpr uint32_t kLanguageLevel = 2;
    const uint32_t count = *Read(directory + kNumberOfNamedEntries, 2) + *Read(directory + kNumberOfIdEntries, 2);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t id = *Read(directory + kHeaderSize + kEntrySize * i, 4);
        const uint32_t target = *Read(directory + kHeaderSize + kEntrySize * i + 4, 4);
        ResourceId read{id, {}};
        if ((id & kFlag) != 0) {
            read.number = rules::kAnyResource;
            const uint32_t text = root + (id & ~kFlag);
            for (uint32_t unit = 0; unit < *Read(text, 2); ++unit)
                read.name += static_cast<char>(*Read(text + 2 + 2 * unit, 2));
        }
        if (level < kLanguageLevel) {
            (level == 0 ? path.type : path.entry) = read;
            ReadResourceLevel(root, root + (target & ~kFlag), level + 1, path);
            continue;
        }
        path.language = static_cast<uint16_t>(id);
        path.data = {OffsetOfRva(*Read(root + target, 4)).value_or(0), *Read(root + target + 4, 4)};
        resources_.push_back(path);
    }
}

// ---- Measures ------------------------------------------------------------------------------------------------------

namespace {

constexpr uint32_t kFraction = 24; // bits

// log2(value) in units of 2^-kFraction; each squaring of the mantissa gives one bit.
uint64_t Log2(uint32_t value) {
    uint32_t whole = 31;
    while ((value >> whole) == 0)
        --whole;
    uint64_t mantissa = uint64_t{value} << (31 - whole);
    uint64_t result = whole;
    for (uint32_t bit = 0; bit < kFraction; ++bit) {
        mantissa = mantissa * mantissa >> 31;
        const uint64_t carry = mantissa >> 32;
        mantissa >>= carry;
        result = result << 1 | carry;
    }
    return result;
}

} // namespace

uint32_t EntropyInThousandths(std::span<const uint8_t> bytes) {
    if (bytes.empty())
        return 0;
    std::array<uint32_t, 256> counts = {};
    for (const uint8_t byte : bytes)
        ++counts[byte];
    uint64_t sum = 0;
    for (const uint32_t count : counts)
        if (count != 0)
            sum += count * Log2(count);
    const uint64_t entropy = Log2(static_cast<uint32_t>(bytes.size())) - sum / bytes.size();
    return static_cast<uint32_t>((entropy * 1000 + (uint64_t{1} << (kFraction - 1))) >> kFraction);
}

} // namespace tavrik::generator
