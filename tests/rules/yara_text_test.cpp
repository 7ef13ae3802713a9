// Which rules are left out of an export and why, and the texts of strings.
#include <gtest/gtest.h>

#include "rules/text/parser.h"
#include "rules/yara/export.h"
#include "rules/yara/strings.h"

namespace tavrik::tests {
namespace {

using namespace rules;

// The reason why a rule is left out; "" when it is exported.
std::string Reason(const std::string &items) {
    const text::ParsedFile parsed = text::ParseRules("rule 1 \"n\" { " + items + " }");
    EXPECT_FALSE(text::HasErrors(parsed.diagnostics)) << items;
    const yara::YaraExport exported = yara::ExportYara(parsed.set);
    EXPECT_EQ(exported.exported.size() + exported.omitted.size(), 1u);
    return exported.omitted.empty() ? "" : exported.omitted[0].reason;
}

TEST(YaraText, RulesWithoutACounterpartAreLeftOut) {
    const std::pair<const char *, const char *> cases[] = {
        {"header { Machine == 1 }", ""},
        {"import_modules { \"a\" } import_functions { #0 \"a\" #0 \"#3\" }", ""},
        {"import_functions { any \"#03\" }", "an ordinal that there is not"},
        {"export_module { \"a\" } export_functions { \"a\" }", ""},
        {"resources { ICON[1] } resource_types { type[1] }", ""},
        {"header { ImportFunctionCount == 5000 }", "ImportFunctionCount"},
        {"header { ResourceCount == 20000 ImportFunctionCount == 70000 }", ""},
        {"traits few_imports", ""},
        {"header { EntryBytes[0] == 1 }", ""},
        {"resource_strings { VERSION[1].Author \"a\" }", "strings of resources"},
        {"object_fields { [0].Null == 0 }", "objects of Visual Basic"},
        {"object_names { [0] \"a\" }", "objects of Visual Basic"},
        {"strings { A = \"ab\" in file }", "a string that may occur more often"},
        {"strings { A = \"abc\" in file }", ""},
        {"strings { A = { 61 ?? 62 ?? 63 } in file }", ""},
        {"strings { A = { 61 ?? 62 ?? ?? } in file }", "a string that may occur more often"},
        {"strings { A = \"aaaaaaaa\" in file }", "a string that may occur more often"},
    };
    for (const auto &[items, reason] : cases) {
        const std::string found = Reason(items);
        EXPECT_EQ(found.substr(0, std::string_view(reason).size()), reason) << items;
        EXPECT_EQ(found.empty(), std::string_view(reason).empty()) << items << ": " << found;
    }
}

TEST(YaraText, StringsAreWrittenByteForByte) {
    StringFeature string;
    string.bytes = "a\"\\\x7F\x1Fz";
    EXPECT_EQ(yara::YaraText(string.bytes), "\"a\\\"\\\\\\x7F\\x1Fz\"");
    EXPECT_EQ(yara::YaraString(string), "{ 61 22 5C 7F 1F 7A }"); // not a text
    string.bytes = "aB@[`{";
    EXPECT_EQ(yara::YaraString(string), "\"aB@[`{\"");
    EXPECT_EQ(yara::YaraStringLength(string), 6u);
    string.options = kStringNoCase;
    EXPECT_EQ(yara::YaraString(string), "\"aB@[`{\" nocase");
    string.mask.set(0);
    EXPECT_EQ(yara::YaraString(string), "{ ?? (42|62) 40 5B 60 7B }");
    string.options = kStringNoCase | kStringWide;
    EXPECT_EQ(yara::YaraString(string), "{ ?? 00 (42|62) 00 40 00 5B 00 60 00 7B 00 }");
    EXPECT_EQ(yara::YaraStringLength(string), 12u);
    string.mask.reset();
    string.options = kStringWide;
    string.bytes = "zZ ~\n\r\t";
    EXPECT_EQ(yara::YaraString(string), "\"z\\x00Z\\x00 \\x00~\\x00\\x0A\\x00\\x0D\\x00\\x09\\x00\"");
}

TEST(YaraText, RulesWithOneIdAreNumbered) {
    RuleSet set;
    for (const uint32_t id : {5u, 7u, 5u, 5u})
        set.rules.emplace_back().rule_id = id;
    std::vector<std::string> names;
    for (std::size_t place = 0; place < set.rules.size(); ++place)
        names.push_back(yara::YaraRuleName(set, place));
    EXPECT_EQ(names, (std::vector<std::string>{"rule_5_0", "rule_7_0", "rule_5_1", "rule_5_2"}));
}

} // namespace
} // namespace tavrik::tests
