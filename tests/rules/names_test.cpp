// The numbers in rules and their names, beside the tables that were typed apart from them and what users read.
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "base/system.h"
#include "rules/lists.h"
#include "rules/model.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "tests/support/golden_lines.h"

namespace tavrik::tests {
namespace {

using namespace rules;

using Texts = std::vector<std::string>;

// The lines of a table that begin with `word`, without it.
std::vector<Texts> TypedRows(const std::string &file, const std::string &word) {
    std::vector<Texts> rows;
    for (const GoldenLine &line : ReadGolden(file))
        if (line.words[0] == word)
            rows.emplace_back(line.words.begin() + 1, line.words.end());
    return rows;
}

uint32_t Number(const std::string &word) {
    return static_cast<uint32_t>(GoldenNumber(word));
}

// The cells of the tables under a heading of the documentation, without the backquotes around names.
std::vector<Texts> DocumentedRows(const std::string &heading) {
    std::ifstream file(base::ProgramFolder() / "golden" / "rule-semantics.md");
    std::vector<Texts> rows;
    bool is_under = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("#"))
            is_under = line == heading;
        if (!is_under || !line.starts_with("| "))
            continue;
        Texts cells;
        for (std::size_t begin = 2, end; (end = line.find(" |", begin)) != std::string::npos; begin = end + 3) {
            std::string cell = line.substr(begin, end - begin);
            if (cell.size() > 1 && cell.front() == '`' && cell.find('`', 1) == cell.size() - 1)
                cell = cell.substr(1, cell.size() - 2);
            cells.push_back(cell);
        }
        rows.push_back(cells);
    }
    return rows;
}

std::string PlaceText(const Field &field) {
    static const std::map<Origin, std::string> kNames = {
        {Origin::DosHeader, "DOS header"},
        {Origin::FileHeader, "file header"},
        {Origin::OptionalHeader, "optional header"},
        {Origin::VbHeader, "VB header"},
        {Origin::VbProject, "VB project"},
        {Origin::VbObjectTable, "object table"},
        {Origin::VbComData, "COM data"},
        {Origin::VbProject2, "second project"},
        {Origin::VbForm, "first form"},
        {Origin::VbExternals, "externals"},
        {Origin::VbObject, "descriptor"},
        {Origin::VbObjectInfo, "information"},
        {Origin::VbObjectOptional, "optional"},
    };
    return field.origin == Origin::Derived ? "derived"
                                           : fmt::format("{} +0x{:X}", kNames.at(field.origin), field.offset);
}

// Rows of a number, a name, a place and a width.
std::set<std::string> DocumentedFields(const std::string &heading) {
    std::set<std::string> fields;
    for (const Texts &row : DocumentedRows(heading))
        if (row.size() == 4 && IsGoldenNumber(row[0]))
            fields.insert(fmt::format("{} {} at {}, {} bytes", row[0], row[1], row[2], row[3]));
    return fields;
}

std::set<std::string> CompiledFields(std::span<const Field> table) {
    std::set<std::string> fields;
    for (const Field &field : table)
        fields.insert(fmt::format("{} {} at {}, {} bytes", field.number, field.name, PlaceText(field), field.width));
    return fields;
}

TEST(RuleNames, PeFieldsAreWhereTheFormatHasThem) {
    const std::map<std::string, std::span<const Field>> tables = {
        {"header", HeaderFields()}, {"section", SectionFields()}, {"import", ImportTableFields()}};
    const std::map<std::string, Origin> origins = {{"dos", Origin::DosHeader},
                                                   {"file", Origin::FileHeader},
                                                   {"optional", Origin::OptionalHeader},
                                                   {"section", Origin::SectionHeader},
                                                   {"descriptor", Origin::ImportDescriptor}};
    std::size_t count = 0;
    for (const auto &[word, table] : tables) {
        for (const Texts &row : TypedRows("pe_fields.txt", word)) {
            const Field *field = FindField(table, Number(row[0]));
            ASSERT_NE(field, nullptr) << word << row[0];
            EXPECT_EQ(field->number, Number(row[0]));
            EXPECT_EQ(field->origin, origins.at(row[1])) << field->name;
            EXPECT_EQ(field->offset, Number(row[2])) << field->name;
            EXPECT_EQ(field->width, Number(row[3])) << field->name;
            EXPECT_EQ(FindField(table, field->name), field);
            ++count;
        }
        EXPECT_EQ(FindField(table, table.front().number - 1), nullptr);
        EXPECT_EQ(FindField(table, table.back().number + 1u), nullptr);
    }
    EXPECT_EQ(count, 114u);
    EXPECT_EQ(FindField(HeaderFields(), "e_Magic"), nullptr);
}

TEST(RuleNames, FieldsAreCalledWhatTheFormatCallsThem) {
    std::map<std::string, std::string> directories;
    for (const Texts &row : TypedRows("pe_fields.txt", "directory"))
        directories[fmt::format("directory[{}]", row[0])] = row[1];
    ASSERT_EQ(directories.size(), 16u);
    std::size_t count = 0;
    for (const Texts &row : TypedRows("record_layout.txt", "header_field")) {
        if (row[1].starts_with("vb_"))
            continue;
        std::string name = row[1];
        if (const std::size_t dot = name.find('.'); dot != std::string::npos)
            name = directories.at(name.substr(0, dot)) + name.substr(dot);
        EXPECT_EQ(HeaderFields()[Number(row[0])].name, name);
        ++count;
    }
    EXPECT_EQ(count, 100u);
    for (const Texts &row : TypedRows("record_layout.txt", "section_field"))
        if (row[0] != "0") { // the name, which has a list of its own
            EXPECT_EQ(SectionFields()[Number(row[0]) - 1].name, row[1]);
        }
    std::map<uint32_t, std::string> types = {{kAnyResource, "any"}};
    for (const Texts &row : TypedRows("pe_fields.txt", "resource_type"))
        types[Number(row[0])] = row[1];
    for (uint32_t type = 0; type < 40; ++type)
        EXPECT_EQ(NameOf(ResourceTypes(), type), types.contains(type) ? types[type] : "") << type;
    EXPECT_EQ(ResourceTypes().size(), types.size());
    EXPECT_EQ(NumberOf(ResourceTypes(), "any"), kAnyResource);
    EXPECT_EQ(NumberOf(ResourceTypes(), "ICONS"), std::nullopt);
}

TEST(RuleNames, FieldsAreDocumented) {
    const std::set<std::string> header = DocumentedFields("## Header values (`header_conditions`)");
    EXPECT_EQ(header.size(), 264u);
    EXPECT_EQ(CompiledFields(HeaderFields()), header);
    const std::set<std::string> objects =
        DocumentedFields("## Visual Basic objects (`secondary_conditions`, `object_names`, `member_names`)");
    EXPECT_EQ(objects.size(), 44u);
    EXPECT_EQ(CompiledFields(ObjectFields()), objects);
}

// A table with a number and a word in its first two columns.
std::map<uint32_t, std::string> DocumentedWords(const std::string &heading) {
    std::map<uint32_t, std::string> words;
    for (const Texts &row : DocumentedRows(heading))
        if (IsGoldenNumber(row[0]))
            words.emplace(Number(row[0]), row[1]);
    return words;
}

std::map<uint32_t, std::string> CompiledWords(std::span<const NamedNumber> names) {
    std::map<uint32_t, std::string> words;
    for (const NamedNumber &name : names)
        words.emplace(name.number, name.name);
    return words;
}

TEST(RuleNames, OperatorsRolesTargetsAndTraitsAreDocumented) {
    EXPECT_EQ(CompiledWords(Operators()), DocumentedWords("## Operators"));
    EXPECT_EQ(CompiledWords(SectionRoles()), DocumentedWords("## Sections (`section_conditions`, `section_names`)"));
    const std::vector<Texts> rows = DocumentedRows("## The rule's own words");
    std::map<uint32_t, std::string> tables[2];
    std::size_t table = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        table += i != 0 && rows[i][0] == "Bit" ? 1u : 0u;
        if (IsGoldenNumber(rows[i][0]))
            tables[table].emplace(Number(rows[i][0]), rows[i][1]);
    }
    EXPECT_EQ(CompiledWords(TargetNames()), tables[0]);
    EXPECT_EQ(CompiledWords(TraitNames()), tables[1]);
    uint32_t all = 0;
    for (const auto &[bit, word] : tables[1])
        all |= bit;
    EXPECT_EQ(trait::kAll, all);
    EXPECT_EQ(OperatorText(Operator::HasBits), "has");
    EXPECT_EQ(NumberOf(SectionRoles(), "first"), std::nullopt);
}

TEST(RuleNames, ResourceKeysAreDocumented) {
    std::ifstream file(base::ProgramFolder() / "golden" / "rule-semantics.md");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    std::size_t at = text.find("Keys 0 to 35 by name:");
    ASSERT_NE(at, std::string::npos);
    for (uint32_t key = 0; key < 36; ++key) {
        const std::string name(NameOf(ResourceKeys(), key));
        // After its number, a blank or a line's end; in order.
        const std::size_t found = text.find("`" + name + "`", at);
        ASSERT_NE(found, std::string::npos) << key;
        const std::size_t number = text.find_first_of("0123456789", at + 21);
        EXPECT_EQ(text.substr(number, text.find_first_not_of("0123456789", number) - number), std::to_string(key));
        at = found + name.size() + 2 - 21;
    }
    EXPECT_EQ(ResourceKeys().size(), 36u);
    EXPECT_EQ(NameOf(ResourceKeys(), 36), "");
}

TEST(RuleNames, RegionsAreDocumented) {
    // "15, 16" and `section("name")`.
    std::map<uint32_t, std::string> kinds;
    for (const Texts &row : DocumentedRows("## Strings (`strings`, `expression`)"))
        if (const std::size_t comma = row[0].find(", "); comma != std::string::npos) {
            kinds[Number(row[0].substr(0, comma))] = row[1];
            EXPECT_EQ(Number(row[0].substr(comma + 2)), Number(row[0].substr(0, comma)) + 1);
        }
    std::map<uint32_t, std::string> measures;
    for (const Texts &row : DocumentedRows("## Measures (`measure_conditions`)"))
        if (IsGoldenNumber(row[0]) && Number(row[0]) > 2)
            measures[Number(row[0])] = row[1];
    for (uint16_t role = kFirstSectionRole; role <= kLastSectionRole; ++role) // "61..71", `last` … `next_to_last`
        measures[61u + role - 600u] = NameOf(SectionRoles(), role);
    const auto shown = [](const Region &region) {
        return std::string(region.name) + (region.argument == RegionArgument::Index  ? "[n]"
                                           : region.argument == RegionArgument::Name ? "(\"name\")"
                                                                                     : "");
    };
    std::map<uint32_t, std::string> compiled_kinds;
    std::map<uint32_t, std::string> compiled_measures;
    for (const Region &region : Regions()) {
        if (region.string_kind != 0)
            compiled_kinds[region.string_kind] = shown(region);
        if (region.measure_code != 0)
            compiled_measures[region.measure_code] = shown(region);
        EXPECT_EQ(FindRegion(region.name, region.argument), &region);
    }
    EXPECT_EQ(compiled_kinds, kinds);
    EXPECT_EQ(compiled_measures, measures);
    EXPECT_EQ(kinds.size(), 16u);
    EXPECT_EQ(measures.size(), 19u);
    for (uint32_t code = 0; code < 256; ++code) {
        const auto byte = static_cast<uint8_t>(code);
        const Region *kind = FindStringRegion(byte);
        EXPECT_EQ(kind == nullptr ? "" : shown(*kind), code >= 1 && code <= 32 ? kinds[(code - 1) / 2 * 2 + 1] : "");
        const Region *measure = FindMeasureRegion(byte);
        EXPECT_EQ(measure == nullptr ? "" : shown(*measure), measures.contains(code) ? measures[code] : "");
    }
    EXPECT_EQ(FindRegion("file", RegionArgument::Index), nullptr);
    EXPECT_EQ(FindRegion("overlays", RegionArgument::None), nullptr);
}

// The numbers that code uses by a name of its own are those of the fields with that name.
TEST(RuleNames, NumbersInCodeAreThoseOfTheFields) {
    namespace field = header_field;
    const std::map<std::string, uint16_t> numbers = {
        {"e_magic", field::kDosMagic},
        {"SizeOfCode", field::kSizeOfCode},
        {"AddressOfEntryPoint", field::kAddressOfEntryPoint},
        {"BaseOfCode", field::kBaseOfCode},
        {"BaseOfData", field::kBaseOfData},
        {"SizeOfImage", field::kSizeOfImage},
        {"DllCharacteristics", field::kDllCharacteristics},
        {"LoaderFlags", field::kLoaderFlags},
        {"ExportTable.VirtualAddress", field::kExportTable},
        {"ImportTable.VirtualAddress", field::kImportTable},
        {"ResourceTable.VirtualAddress", field::kResourceTable},
        {"BaseRelocationTable.VirtualAddress", field::kBaseRelocationTable},
        {"FileSize", field::kFileSize},
        {"OverlayOffset", field::kOverlayOffset},
        {"OverlaySize", field::kOverlaySize},
        {"EntryPointOffset", field::kEntryPointOffset},
        {"EntryPointSection", field::kEntryPointSection},
        {"EntryPointDelta", field::kEntryPointDelta},
        {"EntryBytes[0]", field::kEntryBytes0},
        {"EntryBytes[4]", field::kEntryBytes4},
        {"Rich.Offset", field::kRichOffset},
        {"Rich.Key", field::kRichKey},
        {"Rich.Count", field::kRichCount},
        {"Rich.LastBuild", field::kRichLastBuild},
        {"ImportModuleCount", field::kImportModuleCount},
        {"ImportFunctionCount", field::kImportFunctionCount},
        {"ExportNameCount", field::kExportNameCount},
        {"ResourceCount", field::kResourceCount},
        {"ImageBaseHigh", field::kImageBaseHigh},
        {"CLRRuntimeHeader.Flags", field::kClrFlags},
        {"VB.HeaderOffset", field::kVbHeaderOffset},
        {"VB.ProjectData", field::kVbProjectData},
        {"VB.ThreadCount", field::kVbThreadCount},
        {"VB.FormCount", field::kVbFormCount},
        {"VB.Project.Version", field::kVbProjectVersion},
        {"VB.Project.ObjectTable", field::kVbObjectTable},
        {"VB.Project.ExternalTable", field::kVbExternalTable},
        {"VB.ObjectTable.TotalObjects", field::kVbTotalObjects},
    };
    for (const auto &[name, number] : numbers)
        EXPECT_EQ(HeaderFields()[number].name, name);
}

// "range strings.length 1..128": the words after the name.
std::string TypedRange(const std::string &name) {
    for (const Texts &row : TypedRows("record_layout.txt", "range"))
        if (row[0] == name)
            return fmt::format("{}", fmt::join(row.begin() + 1, row.end(), " "));
    return "missing";
}

TEST(RuleNames, LimitsAreThoseOfTheFormat) {
    EXPECT_EQ(fmt::format("..{}", kMaxDetectionName), TypedRange("HeuristicRule.detection_name_length"));
    EXPECT_EQ(fmt::format("0..{}", kMaxExportModuleNames), TypedRange("export_module_names.count"));
    EXPECT_EQ(fmt::format("0..{}", kMaxSectionName), TypedRange("section_names.name_length"));
    EXPECT_EQ(fmt::format("1..{}", kMaxStringLength), TypedRange("strings.length"));
    EXPECT_EQ(fmt::format("1..{}", kMaxStringKind), TypedRange("strings.string_kind"));
    EXPECT_EQ(fmt::format("0..{}", kMaxSectionIndex) + fmt::format(" {}..{}", kFirstSectionRole, kLastSectionRole),
              TypedRange("section_conditions.section"));
    EXPECT_EQ(fmt::format("0..{} {}..{} {}..{}", kMaxSectionIndex, kFirstNameOnlyRole, kLastNameOnlyRole,
                          kFirstSectionRole, kLastSectionRole),
              TypedRange("section_names.section"));
    EXPECT_EQ(fmt::format("0..{}", HeaderFields().back().number), TypedRange("header_conditions.field"));
    EXPECT_EQ(fmt::format("0..{}", ImportTableFields().back().number), TypedRange("indexed_conditions.field"));
    EXPECT_EQ(fmt::format("0..{}", ObjectFields().back().number), TypedRange("secondary_conditions.field"));
    EXPECT_EQ(fmt::format("0..{}", kNameCased), TypedRange("import_modules.option"));
    EXPECT_EQ(fmt::format("0 {}", kNameCased | kNamePrefix), TypedRange("member_names.option"));
    EXPECT_EQ(fmt::format("0..{}", kStringNoCase | kStringWide), TypedRange("strings.param_e"));
    EXPECT_EQ(fmt::format("{}..{}", kResourceTypeLevel, kResourceEntryLevel),
              TypedRange("resource_type_entries.param_a"));
    for (uint32_t section = 0; section < 1000; ++section)
        EXPECT_EQ(IsAnySection(static_cast<uint16_t>(section)), section >= 505 && section <= 507) << section;
    for (const Texts &row : TypedRows("record_layout.txt", "string_kind"))
        if (row[1] == "needs_string_section") {
            EXPECT_EQ(FindStringRegion(static_cast<uint8_t>(Number(row[0])))->argument, RegionArgument::Name);
        }
}

TEST(RuleModel, EachPartOfARuleSetsItsFeatureFlag) {
    std::map<std::string, uint8_t> flags;
    for (const Texts &row : TypedRows("name_tables.txt", "feature_flags"))
        if (IsGoldenNumber(row[0]) && row.size() == 2)
            flags[row[1]] = static_cast<uint8_t>(Number(row[0]));
    EXPECT_EQ(flags.size(), 18u);
    EXPECT_EQ(ComputeFeatureFlags({}), 0);
    std::size_t lists = 0;
    Rule rule;
    EachList(
        [&](auto tag, auto &list) {
            list.resize(1);
            EXPECT_EQ(ComputeFeatureFlags(rule), flags.at(std::string(tag.kName))) << tag.kName;
            list.clear();
            ++lists;
        },
        rule);
    EXPECT_EQ(lists, 16u);
    rule.attribute_b = 0x80000000;
    EXPECT_EQ(ComputeFeatureFlags(rule), flags.at("attribute_b"));
    rule.reserved = uint64_t{1} << 63;
    EXPECT_EQ(ComputeFeatureFlags(rule), flags.at("attribute_b") | flags.at("reserved"));
    rule.attribute_b = 0;
    EXPECT_EQ(ComputeFeatureFlags(rule), flags.at("reserved"));
}

TEST(RuleModel, TheAnchorBeginsTheLongestStretchWithoutWildcards) {
    struct Case {
        const char *mask; // '?' a wildcard
        uint8_t anchor;
    };
    for (const Case &each : {Case{"", 0},
                             {"?", 0},
                             {"x", 0},
                             {"?x", 1},
                             {"xx?xx", 0},
                             {"x?xx", 2},
                             {"xx?x?xxx?xxx", 5},
                             {"??", 0},
                             {"x??xx?", 3}}) {
        StringFeature string;
        string.bytes = each.mask;
        for (std::size_t i = 0; i < string.bytes.size(); ++i)
            string.mask[i] = each.mask[i] == '?';
        EXPECT_EQ(DefaultAnchor(string), each.anchor) << each.mask;
    }
    StringFeature longest;
    longest.bytes = std::string(200, 'x'); // more than a string may have
    longest.mask.set(0, 100);
    for (std::size_t i = 0; i < 127; ++i)
        longest.mask.set(i);
    EXPECT_EQ(DefaultAnchor(longest), 127);
}

TEST(RuleModel, EntropiesAreComparedInThousandths) {
    const std::map<double, uint32_t> cases = {{-1.0, 0},      {0.0, 0},       {0.0004, 0},    {0.0005, 1},
                                              {7.25, 7250},   {7.2494, 7249}, {7.9996, 8000}, {8.0, 8000},
                                              {8.0004, 8000}, {8.0011, 8001}, {1e300, 8001}};
    for (const auto &[entropy, thousandths] : cases)
        EXPECT_EQ(EntropyThousandths(entropy), thousandths) << entropy;
    MeasureCondition condition;
    condition.bits = MeasureBits(6.5);
    EXPECT_EQ(condition.bits, 0x401A000000000000u);
    EXPECT_EQ(MeasureEntropy(condition), 6.5);
    for (uint8_t kind = 1; kind <= kMaxStringKind; ++kind) {
        EXPECT_EQ(FromEnd(kind), kind % 2 == 0);
        EXPECT_EQ(ForwardKind(kind), (kind + 1) / 2 * 2 - 1);
    }
}

} // namespace
} // namespace tavrik::tests
