#include "evaluation/features.h"

#include <algorithm>
#include <cstring>

#include "evaluation/measures.h"
#include "rules/names.h"
#include "rules/numbers.h"

namespace tavrik::evaluation {

using rules::Origin;
using rules::RegionKind;
using rules::SectionRole;

namespace {

namespace field = rules::header_field;

using pe::kDosHeaderSize;
namespace rich = pe::rich;

// The DOS stub that is searched for the linker's product list.
constexpr uint32_t kLongestStub = 64 * 1024;

// CRC-32s are taken of resources as long as their data and that of all before them are together at most this many times
// as long as the file; in a well-formed file they are shorter than the file.
constexpr uint64_t kResourceDataBound = 2;

uint32_t Narrow(uint64_t value) {
    return static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
}

std::optional<uint32_t> Narrow(std::optional<uint64_t> value) {
    return value ? std::optional(Narrow(*value)) : std::nullopt;
}

uint32_t WordAt(std::span<const uint8_t> bytes, std::size_t offset) {
    uint32_t word;
    std::memcpy(&word, bytes.data() + offset, sizeof(word));
    return word;
}

} // namespace

Features::Features(base::ByteSource &source) : bytes_(source), image_(bytes_) {}

void Features::Set(uint16_t field, std::optional<uint32_t> value) {
    states_[field] = value ? State::Present : State::Absent;
    values_[field] = value.value_or(0);
}

void Features::FindHeader(uint16_t number) {
    const rules::Field &field = rules::HeaderFields()[number];
    switch (field.origin) {
    case Origin::DosHeader:
        return Set(number, image_.DosField(field.offset, field.width));
    case Origin::FileHeader:
        return Set(number, image_.FileField(field.offset, field.width));
    case Origin::OptionalHeader:
        return Set(number, image_.OptionalField(field.offset, field.width));
    case Origin::Derived:
        if (!IsPe())
            return Set(number, std::nullopt);
        if (number >= field::kRichOffset && number <= field::kRichLastBuild)
            return FindRichValues();
        return Set(number, DerivedValue(number));
    default:
        return Set(number, Vb().Value(field));
    }
}

std::optional<uint32_t> Features::DerivedValue(uint16_t field) {
    const std::optional<std::size_t> entry_section = SectionOf(static_cast<uint16_t>(SectionRole::Entry));
    const uint32_t entry = image_.AddressOfEntryPoint();
    const std::optional<uint64_t> entry_offset = entry == 0 ? std::nullopt : image_.OffsetOfRva(entry);
    switch (field) {
    case field::kFileSize:
        return Narrow(image_.size());
    case field::kOverlayOffset:
        return Narrow(OverlayOffset());
    case field::kOverlaySize:
        return Narrow(image_.size() - OverlayOffset());
    case field::kEntryPointOffset:
        return Narrow(entry_offset);
    case field::kEntryPointSection:
        return Narrow(entry_section);
    case field::kEntryPointDelta:
        return entry_section ? std::optional(entry - sections()[*entry_section].VirtualAddress) : std::nullopt;
    case field::kEntryBytes0:
        return entry_offset ? bytes_.Get<uint32_t>(*entry_offset) : std::nullopt;
    case field::kEntryBytes4:
        return entry_offset ? bytes_.Get<uint32_t>(*entry_offset + sizeof(uint32_t)) : std::nullopt;
    case field::kImportModuleCount:
        return Narrow(Imports().descriptors().size());
    case field::kImportFunctionCount:
        return Imports().function_count();
    case field::kExportNameCount:
        return Exports().name_count();
    case field::kResourceCount:
        return Narrow(Resources().resources.size());
    case field::kImageBaseHigh:
        return image_.ImageBaseHigh();
    case field::kClrFlags: {
        const std::optional<uint32_t> rva = image_.DirectoryRva(pe::kClrDirectory);
        const std::optional<uint64_t> header = rva ? image_.OffsetOfRva(*rva) : std::nullopt;
        return header ? bytes_.Get<uint32_t>(*header + pe::kClrFlagsOffset) : std::nullopt;
    }
    case field::kVbHeaderOffset:
        return Narrow(Vb().header());
    default:
        return std::nullopt;
    }
}

// The linker's list of the products that made the file, between the DOS stub and the PE signature. It ends with "Rich"
// and the key that everything before is xored with; the first word, "DanS", and three words of padding come before the
// entries.
void Features::FindRichValues() {
    for (uint16_t field = field::kRichOffset; field <= field::kRichLastBuild; ++field)
        Set(field, std::nullopt);
    const uint32_t end = std::min(image_.e_lfanew(), kLongestStub);
    if (end < kDosHeaderSize + rich::kEndSize)
        return;
    const std::optional<std::vector<uint8_t>> stub = bytes_.Copy({0, end});
    if (!stub)
        return;
    uint32_t end_mark = (end - rich::kEndSize) & ~uint32_t{3};
    while (end_mark >= kDosHeaderSize && WordAt(*stub, end_mark) != rich::kEndMark)
        end_mark -= 4;
    if (end_mark < kDosHeaderSize)
        return;
    const uint32_t key = WordAt(*stub, end_mark + 4);
    Set(field::kRichOffset, end_mark);
    Set(field::kRichKey, key);
    uint32_t start = end_mark - 4;
    while (start >= kDosHeaderSize && WordAt(*stub, start) != (rich::kStartMark ^ key))
        start -= 4;
    if (start < kDosHeaderSize || end_mark - start < rich::kHeaderSize || (end_mark - start) % rich::kEntrySize != 0)
        return;
    const uint32_t count = (end_mark - start - rich::kHeaderSize) / rich::kEntrySize;
    Set(field::kRichCount, count);
    if (count > 0)
        Set(field::kRichLastBuild, WordAt(*stub, end_mark - rich::kEntrySize) ^ key);
}

uint64_t Features::OverlayOffset() const {
    uint64_t end = image_.SizeOfHeaders();
    for (const SectionHeader &section : sections())
        if (section.SizeOfRawData > 0)
            end = std::max(end, uint64_t{section.PointerToRawData} + section.SizeOfRawData);
    return std::min(end, image_.size());
}

std::optional<std::size_t> Features::SectionOf(uint16_t selector) {
    if (selector < rules::kFirstSectionRole)
        return IsSectionPosition(selector) && selector < sections().size() ? std::optional<std::size_t>(selector)
                                                                           : std::nullopt;
    if (selector > rules::kLastSectionRole)
        return std::nullopt;
    SectionPlace &place = roles_[selector - rules::kFirstSectionRole];
    if (!place.is_known) {
        place.section = FindSectionRole(selector, *this);
        place.is_known = true;
    }
    return place.section;
}

std::optional<uint32_t> Features::SectionValue(uint16_t selector, uint8_t number) {
    const std::optional<std::size_t> section = SectionOf(selector);
    return section ? SectionFieldValue(sections()[*section], number) : std::nullopt;
}

base::Region Features::RawDataOf(std::optional<std::size_t> section) const {
    return section && *section < sections().size() ? image_.RawData(*section) : base::Region{};
}

base::Region Features::SectionNamed(std::string_view name) const {
    for (std::size_t i = 0; i < sections().size(); ++i)
        if (SectionName(sections()[i]) == name)
            return image_.RawData(i);
    return {};
}

base::Region Features::EntryCode() {
    const uint32_t entry = image_.AddressOfEntryPoint();
    const std::optional<uint64_t> offset = entry == 0 ? std::nullopt : image_.OffsetOfRva(entry);
    if (!offset)
        return {};
    const std::optional<std::size_t> section = SectionOf(static_cast<uint16_t>(SectionRole::Entry));
    const uint64_t end =
        section ? image_.RawData(*section).End() : std::min<uint64_t>(image_.SizeOfHeaders(), image_.size());
    return {*offset, end - *offset};
}

base::Region Features::ResourceData(std::size_t resource) {
    return resource < Resources().resources.size() ? Resources().resources[resource].data : base::Region{};
}

base::Region Features::StringRegion(const StringFeature &string) {
    const rules::CodedRegion region = rules::RegionOfString(string.string_kind);
    if (region.kind == RegionKind::NamedSection)
        return string.string_section == nullptr
                   ? base::Region{}
                   : SectionNamed({string.string_section,
                                   std::min<std::size_t>(string.string_section_length, rules::kMaxSectionName)});
    return RegionAt(region, string.param_d);
}

base::Region Features::MeasuredRegion(uint8_t code, uint8_t index) {
    return RegionAt(rules::RegionOfMeasure(code), index);
}

// Where a region is; `index` is the position of a section or resource. Named sections are found by SectionNamed().
base::Region Features::RegionAt(rules::CodedRegion region, uint8_t index) {
    switch (region.kind) {
    case RegionKind::File:
        return {0, image_.size()};
    case RegionKind::Headers:
        return {0, std::min<uint64_t>(image_.SizeOfHeaders(), image_.size())};
    case RegionKind::Overlay:
        return {OverlayOffset(), image_.size() - OverlayOffset()};
    case RegionKind::EntryCode:
        return EntryCode();
    case RegionKind::RoleSection:
        return RawDataOf(SectionOf(static_cast<uint16_t>(region.role)));
    case RegionKind::IndexedSection:
        return RawDataOf(index);
    case RegionKind::ResourceData:
        return ResourceData(index);
    case RegionKind::DosStub:
        return image_.e_lfanew() > kDosHeaderSize ? base::Region{kDosHeaderSize, image_.e_lfanew() - kDosHeaderSize}
                                                  : base::Region{};
    case RegionKind::VisualBasic:
        return Vb().region();
    default:
        return {};
    }
}

template <typename Measure>
std::optional<uint32_t> Features::Measured(MeasureKey key, Measure measure) {
    const auto [place, is_new] = measures_.try_emplace(key);
    if (is_new) {
        const auto [kind, code, index, length] = key;
        base::Region region = MeasuredRegion(code, index);
        if (region.length < length)
            region = {};
        else if (length != 0)
            region.length = length;
        place->second = measure(bytes_, region);
    }
    return place->second;
}

std::optional<uint32_t> Features::Entropy(uint8_t code, uint8_t index, uint32_t length) {
    return Measured({static_cast<uint8_t>(rules::Measure::Entropy), code, index, length}, MeasureEntropy);
}

std::optional<uint32_t> Features::Crc32(uint8_t code, uint8_t index, uint32_t length) {
    return Measured({static_cast<uint8_t>(rules::Measure::Crc32), code, index, length}, MeasureCrc32);
}

pe::ImportTable &Features::Imports() {
    return imports_ ? *imports_ : imports_.emplace(image_);
}

pe::ExportTable &Features::Exports() {
    return exports_ ? *exports_ : exports_.emplace(image_);
}

const pe::ResourceTree &Features::Resources() {
    return resources_ ? *resources_ : resources_.emplace(pe::ReadResources(image_));
}

ResourceStrings &Features::Strings() {
    if (!strings_)
        strings_ = std::make_unique<ResourceStrings>(bytes_, Resources());
    return *strings_;
}

VbProject &Features::Vb() {
    return vb_ ? *vb_ : vb_.emplace(image_);
}

std::optional<uint32_t> Features::ResourceCrc32(std::size_t resource) {
    if (resource_ends_.empty())
        for (uint64_t sum = 0; const pe::Resource &each : Resources().resources)
            resource_ends_.push_back(sum += each.data.length);
    if (resource_ends_[resource] > kResourceDataBound * image_.size())
        return std::nullopt;
    const base::Region region = Resources().resources[resource].data;
    const MeasureKey key = {uint8_t{0}, uint8_t{0}, uint8_t{0}, static_cast<uint32_t>(resource)};
    const auto [place, is_new] = measures_.try_emplace(key);
    if (is_new)
        place->second = MeasureCrc32(bytes_, region);
    return place->second;
}

} // namespace tavrik::evaluation
