// Rules as binary records: every value where the format has it, in memory, read back, and in generated source.
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "rules/lists.h"
#include "rules/record/emitter.h"
#include "rules/record/reader.h"
#include "rules/record/record_builder.h"
#include "tests/support/golden_lines.h"

namespace tavrik::tests {
namespace {

using namespace rules;
using namespace rules::record;

// A rule with one element in each list, all of whose values differ.
Rule FullRule() {
    Rule rule;
    rule.header_conditions = {{0x0102, Operator::NotEqual, 0x03040506}};
    rule.section_conditions = {{0x0708, 0x09, Operator::Less, 0x0A0B0C0D}};
    rule.section_names = {{0x0E0F, Operator::Greater, "12345678"}};
    StringFeature string;
    string.bytes = std::string("\x00\xFD\x80\xFF", 4);
    string.mask.set(1).set(3);
    string.anchor = 0x11;
    string.window_start = 0x1213;
    string.window_length = 0x1415;
    string.kind = 0x16;
    string.index = 0x17;
    string.section_name = ".data";
    string.section_tail = "xy";
    string.options = 0x18;
    string.drift = 0x191A;
    rule.strings = {string};
    rule.expression = "A";
    rule.rule_id = 0x1B1C1D1E;
    rule.detection_name = "Some.Name";
    rule.stored_flags = 0xA5;
    rule.attribute_a = 0x1F202122;
    rule.attribute_b = 0x23242526;
    rule.indexed_conditions = {{0x27, 0x28, Operator::AtMost, 0x292A2B2C}};
    rule.import_modules = {{-2, 0x2D, Operator::AtLeast, "module"}};
    rule.import_functions = {{0x2E2F, Operator::HasBits, "function"}};
    rule.export_module_names = {{Operator::NotEqual, "exporter"}};
    rule.export_functions = {{Operator::Less, "exported"}};
    rule.resource_entries = {{0x30313233, 0x34353637, std::string(29, 'r'), 0x3839, 0x3A3B3C3D}};
    rule.resource_type_entries = {{0x3E3F4041, "type", 0x4243, 0x44454647, 0x48494A4B}};
    rule.resource_strings = {{0x4C4D4E4F, 0x50515253, "entry", 0x5455, 0x56575859, "text"}};
    rule.measure_conditions = {{0x5A, Measure::Crc32, 0x5B5C5D5E, 0x5F, Operator::Greater, 0x6061626364656667}};
    rule.secondary_conditions = {{0x68, 0x69, Operator::AtMost, 0x6A6B6C6D}};
    rule.object_names = {{0x6E6F, 0x70, Operator::AtLeast, "object"}};
    rule.member_names = {{0x7172, 0x73, Operator::HasBits, "member"}};
    rule.reserved = 0x7475767778797A7B;
    return rule;
}

// The bytes of a field, found by the table that was typed apart from the code, as a little-endian number.
class TypedRecord {
public:
    TypedRecord(const std::string &structure, const void *record) : record_(static_cast<const uint8_t *>(record)) {
        for (const GoldenLine &line : ReadGolden("record_layout.txt"))
            if (line.words[0] == structure && line.words.size() == 4)
                fields_[line.words[3]] = {static_cast<std::size_t>(GoldenNumber(line.words[1])),
                                          static_cast<std::size_t>(GoldenNumber(line.words[2]))};
    }

    uint64_t operator[](const std::string &field) const {
        const auto [offset, width] = fields_.at(field);
        uint64_t value = 0;
        std::memcpy(&value, record_ + offset, std::min(width, sizeof value));
        return value;
    }

    std::string Text(const std::string &field) const {
        const auto [offset, width] = fields_.at(field);
        return {reinterpret_cast<const char *>(record_ + offset), width};
    }

    // What a field points to.
    const char *Pointer(const std::string &field) const { return reinterpret_cast<const char *>((*this)[field]); }

private:
    const uint8_t *record_;
    std::map<std::string, std::pair<std::size_t, std::size_t>> fields_;
};

std::string Padded(std::string text, std::size_t width) {
    text.resize(width, '\0');
    return text;
}

TEST(RuleRecord, EveryValueIsWhereTheFormatHasIt) {
    const RecordSet set({{FullRule()}});
    ASSERT_EQ(set.rules().size(), 1u);
    const HeuristicRule &record = *set.rules()[0];
    const TypedRecord rule("HeuristicRule", &record);
    EXPECT_STREQ(rule.Pointer("expression"), "A");
    EXPECT_EQ(rule["rule_id"], 0x1B1C1D1Eu);
    EXPECT_EQ(rule.Text("detection_name"), Padded("Some.Name", 30));
    EXPECT_EQ(rule["feature_flags"], 3u); // computed
    EXPECT_EQ(rule["attribute_a"], 0x1F202122u);
    EXPECT_EQ(rule["attribute_b"], 0x23242526u);
    EXPECT_EQ(rule["reserved"], 0x7475767778797A7Bu);

    const auto element = [&](const std::string &list) {
        const TypedRecord field("list", rule.Text(list).data());
        EXPECT_EQ(TypedRecord("list", rule.Text(list).c_str())["count"], 1u) << list;
        return TypedRecord(list, reinterpret_cast<const void *>(rule[list]));
    };
    const auto numbers = [&](const std::string &list, const std::map<std::string, uint64_t> &values) {
        for (const auto &[field, value] : values)
            EXPECT_EQ(element(list)[field], value) << list << "." << field;
    };
    numbers("header_conditions", {{"field", 0x0102}, {"op", 2}, {"value", 0x03040506}});
    numbers("section_conditions", {{"section", 0x0708}, {"field", 9}, {"op", 3}, {"value", 0x0A0B0C0D}});
    numbers("section_names", {{"section", 0x0E0F}, {"op", 4}});
    EXPECT_EQ(element("section_names").Text("name"), Padded("12345678", 9));
    numbers("strings", {{"length", 4},
                        {"param_a", 0x11},
                        {"param_b", 0x1213},
                        {"param_c", 0x1415},
                        {"string_kind", 0x16},
                        {"param_d", 0x17},
                        {"string_section_length", 5},
                        {"param_e", 0x18},
                        {"param_f", 0x191A}});
    EXPECT_EQ(element("strings").Text("mask"), Padded("\x0A", 16));
    EXPECT_EQ(std::string(element("strings").Pointer("bytes"), 4), std::string("\x00\xFD\x80\xFF", 4));
    EXPECT_EQ(std::string(element("strings").Pointer("string_section"), 8), Padded(".dataxy", 8));
    numbers("indexed_conditions", {{"index", 0x27}, {"field", 0x28}, {"op", 5}, {"value", 0x292A2B2C}});
    numbers("import_modules", {{"index", 0xFFFE}, {"option", 0x2D}, {"op", 6}});
    EXPECT_STREQ(element("import_modules").Pointer("name"), "module");
    numbers("import_functions", {{"index", 0x2E2F}, {"op", 7}});
    EXPECT_STREQ(element("import_functions").Pointer("name"), "function");
    numbers("export_module_names", {{"op", 2}});
    EXPECT_STREQ(element("export_module_names").Pointer("name"), "exporter");
    numbers("export_functions", {{"op", 3}});
    EXPECT_STREQ(element("export_functions").Pointer("name"), "exported");
    numbers("resource_entries",
            {{"type", 0x30313233}, {"id", 0x34353637}, {"language", 0x3839}, {"value", 0x3A3B3C3D}});
    EXPECT_EQ(element("resource_entries").Text("name"), Padded(std::string(29, 'r'), 30));
    EXPECT_EQ(element("resource_entries").Text("zero"), std::string(32, '\0'));
    numbers("resource_type_entries",
            {{"type", 0x3E3F4041}, {"language", 0x4243}, {"param_a", 0x44454647}, {"param_b", 0x48494A4B}});
    EXPECT_EQ(element("resource_type_entries").Text("name"), Padded("type", 30));
    numbers("resource_strings", {{"type", 0x4C4D4E4F}, {"id", 0x50515253}, {"language", 0x5455}, {"key", 0x56575859}});
    EXPECT_STREQ(element("resource_strings").Pointer("text"), "text");
    numbers("measure_conditions", {{"param_a", 0x5A},
                                   {"value_kind", 2},
                                   {"param_b", 0x5B5C5D5E},
                                   {"param_c", 0x5F},
                                   {"op", 4},
                                   {"value", 0x6061626364656667}});
    numbers("secondary_conditions", {{"index", 0x68}, {"field", 0x69}, {"op", 5}, {"value", 0x6A6B6C6D}});
    numbers("object_names", {{"index", 0x6E6F}, {"option", 0x70}, {"op", 6}});
    EXPECT_STREQ(element("object_names").Pointer("name"), "object");
    numbers("member_names", {{"index", 0x7172}, {"option", 0x73}, {"op", 7}});
    EXPECT_STREQ(element("member_names").Pointer("name"), "member");
}

TEST(RuleRecord, RecordsReadBackInBothForms) {
    Rule rule = FullRule();
    rule.stored_flags = 3; // a record in working form has what is computed
    const RecordSet set({{rule, Rule{}}});
    RuleSet expected{{rule, Rule{}}};
    EXPECT_EQ(ReadRules(set.rules(), RecordForm::Working), expected);
    for (char &byte : expected.rules[0].strings[0].bytes)
        byte = static_cast<char>(byte - 3);
    EXPECT_EQ(ReadRules(set.rules(), RecordForm::Stored), expected);
    const HeuristicRule &empty = *set.rules()[1];
    EachList(
        [&](auto tag, const auto &list) {
            EXPECT_EQ(list.elements, nullptr) << tag.kName;
            EXPECT_EQ(list.count, 0u) << tag.kName;
        },
        empty);
    EXPECT_STREQ(empty.expression, "");
}

TEST(RuleRecord, SectionTextsAreReadWithinTheirBytes) {
    const RecordSet set({{FullRule()}});
    HeuristicRule record = *set.rules()[0];
    ::StringFeature string = record.strings.elements[0];
    record.strings.elements = &string;
    string.string_section_length = 200; // beyond the eight bytes
    EXPECT_EQ(ReadRule(record, RecordForm::Working).strings[0].section_name, Padded(".dataxy", 8));
    string.string_section = nullptr;
    EXPECT_EQ(ReadRule(record, RecordForm::Working).strings[0].section_name, "");
    std::memset(record.detection_name, 'n', sizeof record.detection_name); // without a NUL
    EXPECT_EQ(ReadRule(record, RecordForm::Working).detection_name, std::string(30, 'n'));
}

// The text of a generated file.
std::string FileText(const std::vector<GeneratedFile> &files, const std::string &name) {
    for (const GeneratedFile &file : files)
        if (file.name == name)
            return file.text;
    return "missing";
}

TEST(RuleRecord, GeneratedSourceHoldsEveryValue) {
    const std::vector<GeneratedFile> files = EmitDatabase({{FullRule()}});
    const std::string text = FileText(files, "rules_0.cpp");
    for (const char *const row : {
             "HeaderCondition kHeaderConditions[] = {\n    {258, 2, 50595078},\n};",
             "SectionCondition kSectionConditions[] = {\n    {1800, 9, 3, 168496141},\n};",
             "SectionNameCondition kSectionNames[] = {\n    {3599, 4, \"12345678\"},\n};",
             "StringFeature kStrings[] = {\n    {{10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, g_bytes_0 + 0, 4, "
             "17, "
             "4627, 5141, 22, 23, 0,",
             "constinit uint8_t g_bytes_0[] = {\n    3, 0, 131, 2,\n};",
             "ImportModule kImportModules[] = {\n    {-2, 45, 6, kRuleTexts + ",
             "MeasureCondition kMeasureConditions[] = {\n    {90, 2, 1532779870, 95, 4, {103, 102, 101, 100, 99, 98, "
             "97, 96}},",
             "ResourceEntry kResourceEntries[] = {\n    {808530483, 875902519, \"rrrrrrrrrrrrrrrrrrrrrrrrrrrrr\", "
             "14393, {}, "
             "976960573},",
             "\"Some.Name\", 165, ",
             "8391743736169200251u}},",
         })
        EXPECT_NE(text.find(row), std::string::npos) << row << "\n" << text;
    EXPECT_NE(
        FileText(files, "rule_table.cpp").find("&g_rules_0[0].rule,\n};\nconstinit const uint32_t RuleTableCount = 1;"),
        std::string::npos);
    EXPECT_NE(FileText(files, "rule_texts.cpp").find("\".dataxy\\000\\000\""), std::string::npos);
    EXPECT_EQ(files.size(), kRuleFileCount + 2);
    std::vector<std::string> names;
    for (const GeneratedFile &file : files)
        names.push_back(file.name);
    EXPECT_EQ(names, DatabaseFileNames());
    // Without rules the table still has an element, since arrays need one.
    EXPECT_NE(FileText(EmitDatabase({}), "rule_table.cpp").find("{\n    nullptr,\n};"), std::string::npos);
}

TEST(RuleRecord, RulesAreSharedOutInOrder) {
    RuleSet set;
    for (uint32_t id = 0; id < 17; ++id)
        set.rules.emplace_back().rule_id = 1000 + id;
    const std::vector<GeneratedFile> files = EmitDatabase(set);
    std::string all;
    for (const GeneratedFile &file : files)
        all += file.text;
    std::size_t at = 0;
    for (uint32_t id = 0; id < 17; ++id) {
        const std::size_t found = all.find(" " + std::to_string(1000 + id) + ",");
        ASSERT_NE(found, std::string::npos) << id;
        EXPECT_GT(found, at);
        at = found;
    }
    const std::string table = FileText(files, "rule_table.cpp");
    EXPECT_NE(table.find("    &g_rules_0[2].rule,\n    &g_rules_1[0].rule,\n"), std::string::npos) << table;
    EXPECT_NE(table.find("    &g_rules_5[1].rule,\n};\nconstinit const uint32_t RuleTableCount = 17;"),
              std::string::npos)
        << table;
    EXPECT_EQ(table.find("g_rules_6"), std::string::npos);
}

TEST(RuleRecord, TextsThatDoNotFitAreRefused) {
    const auto refused = [](auto change) {
        Rule rule;
        change(rule);
        EXPECT_THROW(RecordSet({{rule}}), std::invalid_argument);
        EXPECT_THROW(EmitDatabase({{rule}}), std::invalid_argument);
    };
    refused([](Rule &rule) { rule.detection_name = std::string(30, 'x'); });
    refused([](Rule &rule) { rule.section_names = {{0, Operator::Equal, "123456789"}}; });
    refused([](Rule &rule) { rule.resource_entries = {{0, 0, std::string(30, 'x'), 0, 0}}; });
    refused([](Rule &rule) { rule.resource_type_entries = {{0, std::string(30, 'x'), 0, 0, 0}}; });
    refused([](Rule &rule) { rule.resource_strings = {{0, 0, std::string(30, 'x'), 0, 0, ""}}; });
    Rule longest;
    longest.detection_name = std::string(29, 'x');
    EXPECT_EQ(ReadRules(RecordSet({{longest}}).rules(), RecordForm::Working).rules[0].detection_name,
              longest.detection_name);
}

} // namespace
} // namespace tavrik::tests
