#include "rules/names.h"

#include <algorithm>
#include <iterator>

#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::rules {

namespace {

constexpr NamedNumber kOperators[] = {
    {1, "=="}, {2, "!="}, {3, "<"}, {4, ">"}, {5, "<="}, {6, ">="}, {7, "has"},
};

constexpr NamedNumber kSectionRoles[] = {
    {505, "any"},        {506, "any_code"}, {507, "any_data"}, {600, "last"},         {601, "entry"},
    {602, "code"},       {603, "data"},     {604, "import"},   {605, "resource"},     {606, "export"},
    {607, "relocation"}, {608, "tls"},      {609, "largest"},  {610, "next_to_last"},
};

constexpr NamedNumber kResourceTypes[] = {
    {1, "CURSOR"},        {2, "BITMAP"},         {3, "ICON"},        {4, "MENU"},        {5, "DIALOG"},
    {6, "STRING"},        {7, "FONTDIR"},        {8, "FONT"},        {9, "ACCELERATOR"}, {10, "RCDATA"},
    {11, "MESSAGETABLE"}, {12, "GROUP_CURSOR"},  {14, "GROUP_ICON"}, {16, "VERSION"},    {17, "DLGINCLUDE"},
    {19, "PLUGPLAY"},     {20, "VXD"},           {21, "ANICURSOR"},  {22, "ANIICON"},    {23, "HTML"},
    {24, "MANIFEST"},     {kAnyResource, "any"},
};

// 1..29 belong to version resources, 30..35 to manifests, 0 to both.
constexpr NamedNumber kResourceKeys[] = {
    {0, "Any"},
    {1, "Comments"},
    {2, "CompanyName"},
    {3, "FileDescription"},
    {4, "FileVersion"},
    {5, "InternalName"},
    {6, "LegalCopyright"},
    {7, "LegalTrademarks"},
    {8, "OriginalFilename"},
    {9, "PrivateBuild"},
    {10, "ProductName"},
    {11, "ProductVersion"},
    {12, "SpecialBuild"},
    {13, "OLESelfRegister"},
    {14, "AssemblyVersion"},
    {15, "Author"},
    {16, "Publisher"},
    {17, "Website"},
    {18, "Email"},
    {19, "Support"},
    {20, "License"},
    {21, "Language"},
    {22, "Build"},
    {23, "BuildDate"},
    {24, "BuildNumber"},
    {25, "Compiler"},
    {26, "CompiledScript"},
    {27, "Platform"},
    {28, "FixedFileVersion"},
    {29, "FixedProductVersion"},
    {30, "ManifestName"},
    {31, "ManifestVersion"},
    {32, "ManifestArchitecture"},
    {33, "ManifestDescription"},
    {34, "RequestedExecutionLevel"},
    {35, "DependencyName"},
};

constexpr NamedNumber kTargetNames[] = {
    {0, "library"},   {1, "program"}, {2, "driver"},  {4, "managed"},
    {8, "installer"}, {16, "packed"}, {64, "script"}, {128, "damaged"},
};

constexpr NamedNumber kTraitNames[] = {
    {trait::kOverlay, "overlay"},
    {trait::kEntryInLast, "entry_in_last"},
    {trait::kWritableEntry, "writable_entry"},
    {trait::kExecutableLast, "executable_last"},
    {trait::kFewImports, "few_imports"},
    {trait::kVirtualSection, "virtual_section"},
    {trait::kVisualBasic, "visual_basic"},
    {trait::kNativeCode, "native_code"},
};

constexpr NamedNumber kMetadataKeys[] = {
    {static_cast<uint32_t>(MetadataKey::Author), "author"},
    {static_cast<uint32_t>(MetadataKey::Date), "date"},
    {static_cast<uint32_t>(MetadataKey::Reference), "reference"},
    {static_cast<uint32_t>(MetadataKey::Description), "description"},
    {static_cast<uint32_t>(MetadataKey::Sample), "sample"},
};

constexpr Region kRegions[] = {
    {"file", RegionArgument::None, CodeOf(StringKind::File), CodeOf(MeasureRegion::File)},
    {"headers", RegionArgument::None, CodeOf(StringKind::Headers), CodeOf(MeasureRegion::Headers)},
    {"dos_stub", RegionArgument::None, CodeOf(StringKind::DosStub), CodeOf(MeasureRegion::DosStub)},
    {"overlay", RegionArgument::None, CodeOf(StringKind::Overlay), CodeOf(MeasureRegion::Overlay)},
    {"entry_code", RegionArgument::None, CodeOf(StringKind::EntryCode), CodeOf(MeasureRegion::EntryCode)},
    {"section", RegionArgument::Index, CodeOf(StringKind::IndexedSection), CodeOf(MeasureRegion::IndexedSection)},
    {"section", RegionArgument::Name, CodeOf(StringKind::NamedSection), 0},
    {"last", RegionArgument::None, CodeOf(StringKind::LastSection), MeasureCodeOf(SectionRole::Last)},
    {"entry", RegionArgument::None, CodeOf(StringKind::EntrySection), MeasureCodeOf(SectionRole::Entry)},
    {"code", RegionArgument::None, CodeOf(StringKind::CodeSection), MeasureCodeOf(SectionRole::Code)},
    {"data", RegionArgument::None, 0, MeasureCodeOf(SectionRole::Data)},
    {"import", RegionArgument::None, CodeOf(StringKind::ImportSection), MeasureCodeOf(SectionRole::Import)},
    {"resource", RegionArgument::None, CodeOf(StringKind::ResourceSection), MeasureCodeOf(SectionRole::Resource)},
    {"export", RegionArgument::None, CodeOf(StringKind::ExportSection), MeasureCodeOf(SectionRole::Export)},
    {"relocation", RegionArgument::None, 0, MeasureCodeOf(SectionRole::Relocation)},
    {"tls", RegionArgument::None, 0, MeasureCodeOf(SectionRole::Tls)},
    {"largest", RegionArgument::None, CodeOf(StringKind::LargestSection), MeasureCodeOf(SectionRole::Largest)},
    {"next_to_last", RegionArgument::None, 0, MeasureCodeOf(SectionRole::NextToLast)},
    {"resource_data", RegionArgument::Index, CodeOf(StringKind::ResourceData), CodeOf(MeasureRegion::ResourceData)},
    {"vb", RegionArgument::None, CodeOf(StringKind::VisualBasic), CodeOf(MeasureRegion::VisualBasic)},
};

static_assert(std::size(kResourceKeys) == 36);
static_assert(kResourceKeys[resource_key::kAssemblyVersion].name == "AssemblyVersion");
static_assert(kResourceKeys[resource_key::kFixedFileVersion].name == "FixedFileVersion");
static_assert(kResourceKeys[resource_key::kFixedProductVersion].name == "FixedProductVersion");

} // namespace

std::span<const NamedNumber> Operators() {
    return kOperators;
}

std::span<const NamedNumber> SectionRoles() {
    return kSectionRoles;
}

std::span<const NamedNumber> ResourceTypes() {
    return kResourceTypes;
}

std::span<const NamedNumber> ResourceKeys() {
    return kResourceKeys;
}

std::span<const NamedNumber> TargetNames() {
    return kTargetNames;
}

std::span<const NamedNumber> TraitNames() {
    return kTraitNames;
}

std::span<const NamedNumber> MetadataKeys() {
    return kMetadataKeys;
}

std::span<const Region> Regions() {
    return kRegions;
}

std::string_view NameOf(std::span<const NamedNumber> names, uint32_t number) {
    const auto found = std::ranges::find(names, number, &NamedNumber::number);
    return found != names.end() ? found->name : std::string_view{};
}

std::optional<uint32_t> NumberOf(std::span<const NamedNumber> names, std::string_view name) {
    const auto found = std::ranges::find(names, name, &NamedNumber::name);
    return found != names.end() ? std::optional(found->number) : std::nullopt;
}

std::string_view VersionKeyText(uint32_t key) {
    return key == resource_key::kAssemblyVersion ? "Assembly Version" : NameOf(kResourceKeys, key);
}

std::string_view OperatorText(Operator op) {
    return NameOf(kOperators, static_cast<uint32_t>(op));
}

const Region *FindStringRegion(uint8_t string_kind) {
    if (string_kind == 0 || string_kind > kMaxStringKind)
        return nullptr;
    const auto found = std::ranges::find(kRegions, ForwardKind(string_kind), &Region::string_kind);
    return found != std::end(kRegions) ? found : nullptr;
}

const Region *FindMeasureRegion(uint8_t measure_code) {
    if (measure_code == 0)
        return nullptr;
    const auto found = std::ranges::find(kRegions, measure_code, &Region::measure_code);
    return found != std::end(kRegions) ? found : nullptr;
}

const Region *FindRegion(std::string_view name, RegionArgument argument) {
    const auto found = std::ranges::find_if(
        kRegions, [&](const Region &region) { return region.name == name && region.argument == argument; });
    return found != std::end(kRegions) ? found : nullptr;
}

} // namespace tavrik::rules
