#include "draft/weights.h"

#include <algorithm>
#include <string_view>

#include "rules/lists.h"
#include "rules/names.h"
#include "rules/numbers.h"

namespace tavrik::draft {

namespace {

using rules::Item;
namespace field = rules::header_field;

constexpr uint16_t kFirstDosField = 1;
constexpr std::string_view kUsualSections[] = {".text",  ".data",  ".rdata", ".rsrc", ".reloc",
                                               ".idata", ".edata", ".bss",   ".tls",  ".pdata",
                                               "CODE",   "DATA",   "BSS",    ".CRT",  ""};

std::string_view FieldName(const Row &row) {
    return rules::HeaderFields()[row.header_conditions.front().field].name;
}

int HeaderWeight(const Row &row) {
    const rules::HeaderCondition &condition = row.header_conditions.front();
    if (condition.value == 0)
        return 2;
    switch (condition.field) {
    case field::kRichKey:
        return 70;
    case field::kEntryBytes0:
    case field::kEntryBytes4:
        return 60;
    case field::kMachine:
    case field::kMagic:
    case field::kSubsystem:
    case field::kCharacteristics:
        return 15;
    default:
        if (condition.field >= kFirstDosField && condition.field < field::kLfanew)
            return 5;
        return FieldName(row).starts_with("VB.") ? 12 : 30;
    }
}

int TextWeight(const rules::ResourceString &text) {
    using namespace rules::resource_key;
    if (text.text.size() < 4)
        return 10;
    if (text.type == rules::kManifestResource)
        return 25;
    if (text.type != rules::kVersionResource)
        return 50;
    return text.key >= kFixedFileVersion ? 40 : 75;
}

} // namespace

Item ItemOf(const Row &row) {
    Item item = Item::Traits;
    // A function comes with its module, a method with its object: the later list is what is asked for.
    rules::EachList(
        [&item](auto tag, const auto &list) {
            if (!list.empty())
                item = tag.kItem;
        },
        row);
    return item;
}

int WeightOf(const Row &row) {
    switch (ItemOf(row)) {
    case Item::Header:
        return HeaderWeight(row);
    case Item::Sections:
        return row.section_conditions.front().value == 0                                        ? 2
               : row.section_conditions.front().field == rules::section_field::kCharacteristics ? 15
                                                                                                : 30;
    case Item::SectionNames:
        return std::ranges::find(kUsualSections, row.section_names.front().name) != std::end(kUsualSections) ? 8 : 55;
    case Item::Strings:
        return 50 + static_cast<int>(std::min<std::size_t>(row.strings.front().bytes.size(), 40));
    case Item::ImportModules:
        return 20;
    case Item::ImportFunctions:
        return 35;
    case Item::ExportModule:
        return 70;
    case Item::ExportFunctions:
        return row.export_functions.front().name.starts_with("Dll") ? 20 : 65;
    case Item::Resources:
        return row.resource_entries.front().crc32 != 0 ? 65 : 25;
    case Item::ResourceTypes:
        return row.resource_type_entries.front().number > rules::kManifestResource ? 40 : 10;
    case Item::ResourceStrings:
        return TextWeight(row.resource_strings.front());
    case Item::Measures:
        return row.measure_conditions.front().measure == rules::Measure::Crc32 ? 40 : 10;
    case Item::ObjectNames:
    case Item::MemberNames:
        return 70;
    case Item::ImportTable:
        return 1;
    default:
        return 10;
    }
}

bool IsOfOneBuild(const Row &row) {
    const Item item = ItemOf(row);
    if (item == Item::ImportTable)
        return true;
    if (item == Item::Measures)
        return row.measure_conditions.front().length == 0;
    if (item != Item::Header)
        return false;
    constexpr uint16_t kFields[] = {field::kTimeDateStamp, field::kCheckSum,         field::kFileSize,
                                    field::kOverlayOffset, field::kOverlaySize,      field::kSizeOfImage,
                                    field::kRichKey,       field::kEntryPointOffset, field::kAddressOfEntryPoint,
                                    field::kSizeOfCode};
    const std::string_view name = FieldName(row);
    return std::ranges::find(kFields, row.header_conditions.front().field) != std::end(kFields) ||
           name.starts_with("CertificateTable") || name.starts_with("Debug") || name.starts_with("VB.");
}

bool MayBeRange(const Row &row) {
    const Item item = ItemOf(row);
    if (item == Item::Measures)
        return row.measure_conditions.front().measure == rules::Measure::Entropy;
    if (item == Item::Sections)
        return rules::FindField(rules::SectionFields(), row.section_conditions.front().field)->name.find("Size") !=
               std::string_view::npos;
    if (item != Item::Header)
        return false;
    const std::string_view name = FieldName(row);
    return !name.starts_with("VB.") && !name.starts_with("CertificateTable") &&
           (name.find("Size") != std::string_view::npos || name.find("Count") != std::string_view::npos ||
            name.find("NumberOf") != std::string_view::npos || name == "AddressOfEntryPoint");
}

} // namespace tavrik::draft
