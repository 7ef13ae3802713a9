// The rule language: from text to rules and back, through the compiler and the records, and what is refused.
#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "base/system.h"
#include "rules/analysis/lints.h"
#include "rules/record/emitter.h"
#include "rules/record/reader.h"
#include "rules/record/record_builder.h"
#include "rules/text/formatter.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"
#include "tavrik2/rules/database.h"
#include "tavrik2/rules/preparation.h"
#include "tests/support/module_folder.h"
#include "tests/support/random_rule.h"

namespace tavrik::tests {
namespace {

using namespace rules;
using namespace rules::analysis;
using namespace rules::record;
using namespace rules::text;
using tavrik2::RuleTable;
using tavrik2::RuleTableCount;

// The text that the database of this program was compiled from: every list, operator and option, in canonical form.
std::string SmallText() {
    return ReadFile(base::ProgramFolder() / "small.rules");
}

std::string Rendered(const std::string &text, const ParsedFile &parsed) {
    std::string all;
    for (const Diagnostic &diagnostic : parsed.diagnostics)
        all += Render({"", text}, diagnostic);
    return all;
}

RuleSet Parsed(const std::string &text) {
    const ParsedFile parsed = ParseRules(text);
    EXPECT_FALSE(HasErrors(parsed.diagnostics)) << Rendered(text, parsed);
    return parsed.set;
}

std::string Formatted(const std::string &text) {
    const ParsedFile parsed = ParseRules(text);
    EXPECT_FALSE(HasErrors(parsed.diagnostics)) << Rendered(text, parsed);
    return FormatRules(parsed);
}

TEST(RuleText, CanonicalFormIsAFixedPoint) {
    const std::string text = SmallText();
    const RuleSet set = Parsed(text);
    ASSERT_EQ(set.rules.size(), 4u);
    EXPECT_EQ(PrintRuleSet(set), text);
    EXPECT_EQ(Formatted(text), text);
    std::string with_cr;
    for (const char c : text)
        with_cr += c == '\n' ? std::string("\r\n") : std::string(1, c);
    EXPECT_EQ(Formatted("\xEF\xBB\xBF" + with_cr), text);
}

TEST(RuleText, EveryRuleReadsBackAsItWas) {
    for (uint64_t seed = 0; seed < 3000; ++seed) {
        const Rule rule = RandomRule(seed).Make();
        const std::string text = PrintRule(rule);
        const RuleSet set = Parsed(text);
        ASSERT_EQ(set.rules.size(), 1u) << seed;
        ASSERT_EQ(set.rules[0], rule) << seed << "\n" << text;
        ASSERT_EQ(Formatted(text), text) << seed;
        ASSERT_NO_THROW(EmitDatabase(set)) << seed;
    }
}

TEST(RuleText, OtherSpellingsMeanTheSame) {
    const auto same = [](const std::string &a, const std::string &b) {
        EXPECT_EQ(PrintRuleSet(Parsed("rule 1 \"\" " + a)),
                  PrintRuleSet(Parsed("rule 0x1 \"\" for program {" + b + "}")));
    };
    same("{ header { field[0x20] >= 0x3 ; field[32] <= 7; } }", "header { NumberOfSections in 3..7 }");
    same("{ section_names { any == \"a\" | \"b\" [600] == \"c\" } }",
         "section_names { any == \"a\" any == \"b\" last == \"c\" }");
    same("{ strings { A={4D5a[00]} nocase wide in section at 0..0 anchor 0 } when A }",
         "when \"A\" strings { A = { 4D 5A ?? } wide nocase in section[0] at 0 }");
    same("{ resources { 10[4294967295, \"\"] } measures { entropy(region(72)) == 7 } traits 3, 0 }",
         "traits entry_in_last, overlay measures { entropy(file, 0) == 7.0 } resources { RCDATA[any] crc32 0 }");
}

TEST(RuleText, FormattingKeepsEveryComment) {
    const std::string plain = SmallText();
    for (const bool to_the_end : {true, false}) {
        std::string text;
        std::size_t count = 0;
        const auto comment = [&] {
            const std::string body = "c" + std::to_string(count++) + ".";
            return to_the_end ? "// " + body : "/* " + body + "\n*/";
        };
        for (std::size_t begin = 0, end; (end = plain.find('\n', begin)) != std::string::npos; begin = end + 1) {
            std::string row = plain.substr(begin, end - begin);
            // Two rows that become one.
            if (const std::size_t in = row.find(" in 4..5"); in != std::string::npos)
                row = row.substr(0, in) + " >= 4 " + comment() + "\nNumberOfSections <= 5";
            text += comment() + "\n" + row + " " + comment() + "\n";
        }
        text += comment();
        const std::string formatted = Formatted(text);
        EXPECT_EQ(Parsed(formatted), Parsed(plain));
        EXPECT_EQ(Formatted(formatted), formatted);
        for (std::size_t number = 0; number < count; ++number) {
            const std::string body = " c" + std::to_string(number) + ".";
            EXPECT_EQ(formatted.find(body), formatted.rfind(body)) << body;
            EXPECT_NE(formatted.find(body), std::string::npos) << body;
        }
    }
    EXPECT_EQ(Formatted("rule 1 \"\" { header { Machine >= 1 // a\n Machine <= 2 /* b\n c */ } sections {/*d*/} }"),
              "rule 1 \"\" for program {\n    header {\n        // a\n        Machine in 1..2  /* b\n c */\n    }\n"
              "    /*d*/\n}\n");
}

// What is wrong with a text: code, line and column of a finding, and a part of what it says.
struct Finding {
    const char *code;
    std::size_t line;
    std::size_t column;
    const char *part;
};

struct BrokenText {
    std::string text;
    std::vector<Finding> findings; // all of them
};

std::string InRule(const std::string &items) {
    return "rule 1 \"\" { traits overlay\n" + items + "\n}";
}

std::string Strings(std::size_t count) {
    std::string rows = "strings {\n";
    for (std::size_t i = 0; i < count; ++i)
        rows += (i < 26 ? std::string(1, static_cast<char>('A' + i)) : "AA") + " = \"x\" in file\n";
    return rows + "}";
}

TEST(RuleErrors, EveryMistakeIsReportedAtItsPlace) {
    const std::string name29(29, 'n');
    const std::string bytes128(128, 's');
    const BrokenText texts[] = {
        {"// nothing", {{"W514", 1, 1, "no rules"}}},
        {InRule(Strings(26)), {}},
        {InRule(Strings(27)), {{"E308", 29, 1, "at most 26"}}},
        {"rule 1 \"" + name29 + "\" { traits 1 }", {}},
        {"rule 1 \"" + name29 + "n\" { traits 1 }", {{"E303", 1, 8, "at most 29"}}},
        {InRule("strings { A = \"" + bytes128 + "\" in file }"), {}},
        {InRule("strings { A = \"" + bytes128 + "s\" in file }"), {{"E310", 2, 15, "this has 129"}}},
        {InRule("strings { A = { } in file\nB = \"xy\" in file anchor 2 }"),
         {{"E310", 2, 15, "this has 0"}, {"E309", 3, 25, "within the string"}}},
        {InRule("strings { A = \"a\" in file\nC = \"c\" in fil\nC = { 4 } in file\nD = \"d\" in data\n}"),
         {{"E403", 3, 1, "letter is B"},
          {"E204", 3, 12, "'fil'"},
          {"E101", 4, 7, "hexadecimal"},
          {"E307", 5, 12, "'data'"}}},
        {InRule("strings { A = \"a\" in file at 0x200..0x100\nB = \"a\" in file at 0..0xFFFF\n}"),
         {{"E311", 2, 37, "0x200 is above 0x100"}, {"E311", 3, 23, "65535"}}},
        {InRule("strings { A = \"a\" in section(\"123456789\") }\nwhen (A&B)"),
         {{"E303", 2, 30, "1 to 8"}, {"E404", 3, 9, "no string B"}}},
        {InRule(Strings(3) + "\nwhen (A|C)"), {{"E404", 7, 6, "B is missing"}}},
        {InRule(Strings(3) + "\nwhen A&B"), {{"E404", 7, 7, "parentheses of its own"}}},
        {InRule(Strings(3) + "\nwhen (A&B|C) // tail"), {{"E404", 7, 10, "one operation"}}},
        {InRule("header { Machin == 1\nSubsystem = 2\nMachine == 0x\nMagic == 65535 NumberOfSymbols == 4294967296 }"),
         {{"E203", 2, 10, "'Machin'"},
          {"E101", 3, 11, "an operator"},
          {"E102", 4, 12, "not a number"},
          {"E301", 5, 35, "4294967295"}}},
        {InRule("header { Machine == 1 Machine == 2\nfield[1].Size > 1\nSubsystem == 65536 }"),
         {{"E402", 2, 23, "same value"}, {"E203", 3, 1, "field[1].Size"}, {"W502", 4, 14, "16 bits"}}},
        {InRule("headers { Machine == 1\n}\nsections { any.VirtualSize > 1 }\nsections { [65536].VirtualSize > 1 }"),
         {{"E202", 2, 1, "'headers'"}, {"E306", 4, 12, "'any'"}, {"E401", 5, 1, "already"}, {"E301", 5, 13, "65535"}}},
        {InRule("section_names { last == \"123456789\"\n[0] == \"a\\x00\"\n[1] in 3 }"),
         {{"E303", 2, 25, "at most 8"}, {"E302", 3, 8, "NUL"}, {"E101", 4, 5, "== or !="}}},
        {InRule("import_modules { [32768] \"a\"\n\"b\" option 256 }\nexport_module { \"a\"\n\"b\" }"),
         {{"E301", 2, 19, "32767"}, {"E301", 3, 12, "255"}, {"E305", 5, 1, "one export module"}}},
        {InRule("resources { ICON[\"" + name29 +
                "n\"]\nICO[1] language 65536 }\nresource_strings { STRING[1].Comments \"\" }"),
         {{"E303", 2, 18, "at most 29"},
          {"E201", 3, 1, "'ICO'"},
          {"E301", 3, 17, "65535"},
          {"E312", 4, 30, "VERSION"}}},
        {InRule("measures { entropy(vb) == 1e5\nentropy(file) > 9\ncrc32(file) == 1.5 }\nmember_names { #0 \"a\" }"),
         {{"E102", 2, 27, "not a number"},
          {"W501", 3, 17, "0 to 8"},
          {"E101", 4, 16, "CRC-32"},
          {"E405", 5, 16, "#0"}}},
        {"rule 1 \"a { \nrule 2 \"\\q\" for library, driver { traits @\n}\nrule 3 \"\" { header {\nrule 4 \"\" { }",
         {{"E003", 1, 8, "closing quote"},
          {"E004", 2, 9, "escape"},
          {"E304", 2, 17, "alone"},
          {"E001", 2, 42, "mean nothing"},
          {"E103", 4, 1, "closing brace"},
          {"E103", 4, 13, "closing brace"},
          {"E406", 5, 1, "asks nothing"}}},
        {std::string("rule 1 \"\" { traits 1 } \0 /* x", 29), {{"E005", 1, 24, "NUL"}}},
        {std::string("r\0u\0l\0e\0 \0", 10), {{"E006", 1, 1, "UTF-16"}}},
        {"\xFF\xFEr", {{"E006", 1, 1, "UTF-16"}}},
        {"rule a {\nstrings:\n$a = { 4? [2-] } /x/\ncondition: any of them }", {{"E007", 1, 1, "YARA"}}},
        {"import \"pe\" rule a { condition: true }", {{"E007", 1, 1, "YARA"}}},
        {"rule 1 \"a\" { strings { A = \"open in file } }\nrule 2 \"b\" { traits 1 }",
         {{"E003", 1, 28, "closing quote"}}},
        {InRule("strings { A = { 4? ?5 [4] [2-8] [2-] [41] (41|42) 43 } in file\nB = /a.c/i in file\nC = 'x' in "
                "file\n$d = "
                "\"x\" in file\nE = \"e\" in file }"),
         {{"E104", 2, 17, "halves"},
          {"E104", 2, 20, "halves"},
          {"E104", 2, 23, "jumps"},
          {"E104", 2, 27, "jumps"},
          {"E104", 2, 33, "jumps"},
          {"E104", 2, 43, "alternatives"},
          {"E104", 3, 5, "regular expressions"},
          {"E104", 4, 5, "double quotes"},
          {"E104", 5, 1, "no names with $"}}},
        {InRule(Strings(2) + "\nwhen A and B"), {{"E104", 6, 8, "'and'"}}},
        {InRule(Strings(1) + "\nwhen any of them"), {{"E104", 5, 6, "'any'"}}},
        {InRule("strings { A = \"a\" in file drift 1 at 2\nB = \"b\" nocase wide in file nocase }\nresources { ICON[1] "
                "crc32 5 "
                "language 9 }\nimport_modules { \"a\" option 1 cased }"),
         {{"E105", 2, 35, "'at'"},
          {"E105", 3, 29, "'nocase'"},
          {"E105", 4, 29, "'language'"},
          {"E105", 5, 31, "'cased'"}}},
        {InRule("header { Machine == 332,\nSubsystem == 2, Magic == GUI\nMachine == I386 }"),
         {{"E106", 2, 24, "no comma"},
          {"E106", 3, 15, "no comma"},
          {"E101", 3, 26, "a value"},
          {"E101", 4, 12, "a value"}}},
        {InRule("import_modules { \"a\" }\nimport_functions { #0 \"F\"\n#1 \"G\" }"), {{"E407", 4, 1, "no row #1"}}},
    };
    for (const BrokenText &broken : texts) {
        const ParsedFile parsed = ParseRules(broken.text);
        const std::string rendered = broken.text + "\n" + Rendered(broken.text, parsed);
        ASSERT_EQ(parsed.diagnostics.size(), broken.findings.size()) << rendered;
        for (std::size_t i = 0; i < broken.findings.size(); ++i) {
            const Finding &expected = broken.findings[i];
            const Diagnostic &actual = parsed.diagnostics[i];
            const Place place = PlaceOf(broken.text, actual.offset);
            EXPECT_EQ(CodeText(actual.code), expected.code) << rendered;
            EXPECT_EQ(place.line, expected.line) << rendered;
            EXPECT_EQ(place.column, expected.column) << rendered;
            EXPECT_NE(actual.message.find(expected.part), std::string::npos) << rendered;
        }
    }
}

TEST(RuleErrors, AreShownWithTheLineAndACaret) {
    const std::string text = "rule 1 \"\" {\r\n\theader { Machin\x01 == 1 }\r\n}";
    EXPECT_EQ(Render({"a.rules", text}, {Severity::Error, Code::E203, 23, 6, "there is no field", "did you mean"}),
              "a.rules:2:11: error[E203]: there is no field\n"
              " 2 |     header { Machin? == 1 }\n"
              "   |              ^^^^^^\n"
              "   = did you mean\n");
}

TEST(RuleErrors, WarningsDoNotEndAText) {
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "rule 1 \"\" { header { Machine == 65536 } }\n";
    const ParsedFile parsed = ParseRules(text + "rule 2 \"\" {}");
    EXPECT_EQ(parsed.set.rules.size(), 301u);
    EXPECT_EQ(parsed.diagnostics.size(), kMaxErrors + 1);
    EXPECT_EQ(parsed.diagnostics.back().code, Code::E406);
    EXPECT_EQ(ParseRules(std::string(100'000, '@') + std::string(100'000, '(')).diagnostics.size(), 1u);
    std::string strange;
    for (int i = 0; i < 100'000; ++i)
        strange += "@ ";
    EXPECT_EQ(ParseRules(strange).diagnostics.size(), kMaxErrors);
}

// Last in its program's order: it prepares the records that this program carries.
TEST(RuleRecords, AreTheRulesThatTheTextSays) {
    RuleSet expected = Parsed(SmallText());
    const std::span<HeuristicRule *const> table(RuleTable, RuleTableCount);
    std::set<const char *> kernel_names;
    for (const HeuristicRule *record : table) {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(record) % 16, 0u);
        for (uint32_t i = 0; i < record->import_modules.count; ++i) {
            if (record->import_modules.elements[i].name == std::string_view("KERNEL32.dll"))
                kernel_names.insert(record->import_modules.elements[i].name);
        }
    }
    EXPECT_EQ(kernel_names.size(), 1u);
    EXPECT_EQ(ReadRules(table, RecordForm::Stored), expected);
    ASSERT_EQ(tavrik2::PrepareRules(RuleTable, static_cast<int32_t>(RuleTableCount)), 1);
    for (Rule &rule : expected.rules)
        rule.stored_flags = ComputeFeatureFlags(rule);
    EXPECT_EQ(ReadRules(table, RecordForm::Working), expected);
    EXPECT_EQ(ReadRules(RecordSet(expected).rules(), RecordForm::Working), expected);
}

// The codes of the lints of some rules that are in one file, in the order of their places.
std::string LintCodes(const std::string &text, const std::vector<uint32_t> &shared_ids = {}) {
    const Source source = {"lint.rules", text};
    const ParsedFile parsed = ParseRules(text);
    EXPECT_FALSE(HasErrors(parsed.diagnostics)) << Rendered(text, parsed);
    const LintedFile file = {&source, &parsed};
    std::string codes;
    const std::vector<std::vector<Diagnostic>> lints = FindLints({&file, 1}, shared_ids);
    for (const Diagnostic &diagnostic : lints.at(0))
        codes.append(codes.empty() ? "" : " ").append(CodeText(diagnostic.code));
    return codes;
}

TEST(RuleLints, FindWhatNoFileMeets) {
    const std::pair<const char *, const char *> cases[] = {
        {"header { Machine >= 10 Machine < 5 }", "W503"},
        {"header { Machine >= 4 Machine < 5 }", ""},
        {"header { Machine == 1 | 2 Subsystem == 2 Machine == 3 | 4 }", "W503"},
        {"header { Machine == 1 | 2 Subsystem == 2 Machine == 3 | 2 }", ""},
        {"header { Machine in 4..5 Machine != 4 Machine != 5 }", "W503"},
        {"header { Machine in 4..6 Machine != 4 Machine != 5 }", ""},
        {"header { Characteristics has 0x102 Characteristics in 0x103..0x101 }", "W503"},
        {"header { Characteristics has 0x102 Characteristics <= 0x101 }", "W503"},
        {"header { Characteristics has 0x102 Characteristics in 0x101..0x102 }", ""},
        {"header { Characteristics has 2 Characteristics == 5 | 9 }", "W503"},
        {"header { FileSize < 0 }", "W503"},
        {"header { Machine == 0x10000 }", ""}, // the parser warns
        {"header { field[300] == 1 }", "W503"},
        {"header { NumberOfSections == 3 } sections { [2].VirtualSize > 0 [3].VirtualSize > 0 }", "W503"},
        {"traits overlay header { OverlaySize == 0 }", "W503"},
        {"traits few_imports header { ImportFunctionCount > 8 }", "W503"},
        {"traits writable_entry sections { entry.Characteristics == 0x60000020 }", "W503"},
        {"traits 256", "W503"},
        {"section_names { [0] == \"a\" | \"b\" [1] == \"c\" [0] == \"c\" }", "W503"},
        {"section_names { [0] == \"a\" [1] == \"b\" last == \"c\" any == \"d\" any == \"e\" }", ""},
        {"measures { entropy(file) > 7.5 entropy(file, 64) < 7 entropy(section[0]) < 7 }", ""},
        {"measures { entropy(file) > 7.5 entropy(file) < 7.5 }", "W503"},
        {"measures { crc32(file) == 1 entropy(file) > 1 crc32(file) == 2 }", "W503"},
        {"import_modules { \"a.dll\" != \"A.DLL\" }", "W504"},
        {"import_modules { \"a.dll\" != \"A.DLL\" cased != \"b\" prefix }", ""},
        {"import_modules { [0] \"a.dll\" [0] \"b.dll\" }", "W504"},
        {"import_modules { [0] \"a\" prefix [0] \"ab.dll\" [1] \"c.dll\" \"d.dll\" }", ""},
        {"import_modules { \"a.dll\" \"b.dll\" } import_functions { #0 \"F\" #1 != \"F\" #0 != \"f\" }", ""},
        {"import_modules { \"a.dll\" } import_functions { #0 \"F\" #0 != \"F\" }", "W504"},
        {"export_functions { \"F\" != \"F\" }", "W504"},
        {"export_functions { < \"F\" }", "W504"},
        {"resources { ICON[1] language 9 } resource_types { type[3] absent }", "W504"},
        {"resources { ICON[1] } resource_types { type[3] language 9 absent }", ""},
        {"object_names { [0] \"a\" [1] \"b\" } member_names { #0 \"F\" #1 != \"F\" }", ""},
        {"object_names { [0] \"a\" } member_names { #0 \"F\" #0 != \"f\" }", "W504"},
        {"section_names { any == \"a\" any != \"a\" }", "W504"},
        {"section_names { [0] == \"a\" | \"b\" any != \"a\" }", ""},
        {"header { FileSize < 0x200 } strings { A = \"abcd\" in file at 0x1FC }", "W505"},
        {"header { FileSize < 0x201 } strings { A = \"abcd\" in file at 0x1FC }", ""},
        {"header { SizeOfHeaders < 0x200 } strings { A = \"abcd\" in headers at 0x1FC }", "W505"},
        {"header { SizeOfHeaders <= 0x200 } strings { A = \"abcd\" in headers at 0x1FC }", ""},
        {"header { OverlaySize == 5 } strings { A = \"abcd\" in overlay at 2 }", "W505"},
        {"header { OverlaySize == 5 } strings { A = \"abcd\" in overlay at 2 drift 1 B = \"abcd\" in file at 2 }", ""},
        {"header { e_lfanew == 0x48 } strings { A = \"abcd\" in dos_stub at 5 }", "W505"},
        {"header { e_lfanew == 0x48 } strings { A = \"abcd\" in dos_stub at 4 }", ""},
        {"header { e_lfanew == 0x3F } strings { A = \"abcd\" in dos_stub }", "W505"},
        {"sections { entry.SizeOfRawData < 4 } strings { A = \"abcd\" in entry }", "W505"},
        {"sections { last.SizeOfRawData < 4 } strings { A = \"abcd\" in last }", "W505"},
        {"sections { code.SizeOfRawData < 4 } strings { A = \"abcd\" in code }", "W505"},
        {"sections { resource.SizeOfRawData < 4 } strings { A = \"abcd\" in resource }", "W505"},
        {"sections { import.SizeOfRawData < 4 } strings { A = \"abcd\" in import }", "W505"},
        {"sections { export.SizeOfRawData < 4 } strings { A = \"abcd\" in export }", "W505"},
        {"sections { largest.SizeOfRawData < 4 } strings { A = \"abcd\" in largest }", "W505"},
        {"sections { last.SizeOfRawData < 4 } strings { A = \"abcd\" in entry B = \"abcd\" in section(\".text\") }",
         ""},
        {"header { VB.ObjectTable.TotalObjects == 2 } object_names { [1] \"a\" }", ""},
        {"header { VB.ObjectTable.TotalObjects == 2 } object_names { [2] \"a\" }", "W503"},
        {"header { VB.ObjectTable.TotalObjects == 2 } object_fields { [2].Null == 0 }", "W503"},
        {"header { NumberOfSections == 3 } section_names { [3] == \"a\" }", "W503"},
        {"traits executable_last sections { last.Characteristics == 0x40000040 }", "W503"},
        {"traits native_code header { VB.Project.NativeCode == 0 }", "W503"},
        {"traits few_imports header { ImportFunctionCount >= 8 }", ""},
        {"sections { [1].SizeOfRawData == 6 } strings { A = \"abcd\" wide in section[1] from end }", "W505"},
        {"sections { [1].SizeOfRawData == 6 } strings { A = \"abcd\" wide in section[0] B = \"xy\" in section[1] at 4 "
         "}",
         ""},
    };
    for (const auto &[body, codes] : cases)
        EXPECT_EQ(LintCodes("rule 1 \"a\" { " + std::string(body) + " }"), codes) << body;
}

TEST(RuleLints, FindRulesThatAddNothing) {
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"header { e_magic == 0x5A4D Machine >= 0 }", "traits overlay", "W506"},
        {"header { e_magic == 0x5A4D }", "header { e_magic == 0x5A4D Magic >= 0 }", "W506"},
        {"header { Machine == 1 Subsystem == 2 }", "header { Subsystem == 2 Machine in 1..1 }", "W507"},
        {"header { Machine == 1 Subsystem == 2 }", "header { Machine == 1 }", "W508"},
        {"header { Machine == 1 | 3 }", "header { Machine in 1..3 }", "W508"},
        {"header { Machine == 1 | 4 }", "header { Machine in 1..3 }", ""},
        {"header { Characteristics has 3 }", "header { Characteristics has 1 Characteristics >= 3 }", "W508"},
        {"header { OverlaySize == 9 }", "traits overlay", "W508"},
        {"header { ImportFunctionCount < 5 }", "header { ImportFunctionCount < 9 Magic != 7 }", ""},
        {"sections { [0].VirtualSize == 1 }", "sections { last.VirtualSize == 1 }", ""},
        {"section_names { [0] == \"a\" }", "section_names { any == \"a\" }", "W508"},
        {"section_names { [0] == \"a\" | \"b\" }", "section_names { any == \"a\" }", ""},
        {"import_modules { [0] \"Ab\" cased }", "import_modules { \"aB\" }", "W508"},
        {"import_modules { \"ab\" }", "import_modules { \"ab\" cased }", "W508"}, // the second
        {"import_modules { \"abc\" }", "import_modules { \"AB\" prefix }", "W508"},
        {"import_modules { != \"ab\" prefix }", "import_modules { != \"abc\" }", "W508"},
        {"import_modules { != \"abc\" }", "import_modules { != \"ab\" prefix }", "W508"}, // the second, by the first
        {"import_modules { \"a\" \"b\" } import_functions { #1 \"F\" }",
         "import_modules { != \"c\" } import_functions { #0 \"F\" }", ""},
        {"import_modules { \"a\" \"b\" } import_functions { #1 \"F\" }",
         "import_modules { \"a\" } import_functions { #0 \"F\" }", ""},
        {"resources { ICON[1] language 9 }", "resources { ICON[any] }", "W508"},
        {"resource_types { type[3] absent }", "resource_types { type[3] language 9 absent }", "W508"},
        {"resource_types { type[3] language 9 }", "resource_types { type[3] absent }", ""},
        {"object_names { [0] \"a\" [1] \"b\" } member_names { #1 \"F\" }",
         "object_names { [1] \"b\" } member_names { #0 \"F\" }", "W508"},
        {"strings { A = \"abcd\" in section[0] at 4 }", "strings { A = \"ABCD\" nocase in file }", "W508"},
        {"strings { A = \"abcd\" in section[0] at 4 }", "strings { A = \"abcd\" in file at 4 }", ""},
        {"strings { A = \"abcd\" in file at 4..9 }", "strings { A = { 61 ?? 63 64 } in file at 3 drift 8 }", "W508"},
        {"strings { A = { 61 ?? 63 64 } in file }", "strings { A = \"abcd\" in file }", "W508"}, // the second
        {"strings { A = \"ab\" in file B = \"cd\" in file } when (A|B)",
         "strings { A = \"cd\" in file B = \"ef\" in file C = \"ab\" in file } when (A|(B|C))", "W508"},
        {"strings { A = \"ab\" in file B = \"cd\" in file } when (A|B)", "strings { A = \"ab\" in file }", "W508"},
        {"strings { A = \"ab\" in file B = \"cd\" in file } when (A|B)", "strings { A = \"ef\" in file }", ""},
    };
    for (const auto &[first, second, codes] : cases)
        EXPECT_EQ(LintCodes("rule 1 \"a\" { " + std::string(first) + " } rule 2 \"b\" { " + second + " }"), codes)
            << first << "\n"
            << second;
}

TEST(RuleLints, FindRowsThatAreOfNoUse) {
    const std::pair<const char *, const char *> cases[] = {
        {"header { Machine >= 4 Subsystem == 2 Machine == 5 }", "W511"},
        {"header { Machine in 0..5 Subsystem == 2 }", ""},
        {"header { Machine in 3..5 Subsystem == 2 Machine in 4..9 }", ""},
        {"header { Machine in 3..9 Subsystem == 2 Machine in 4..5 Machine != 7 }", "W511 W511"},
        {"header { Characteristics has 6 Machine == 1 Characteristics has 2 }", "W511"},
        {"header { Characteristics has 4 Machine == 1 Characteristics has 2 }", ""},
        {"header { NumberOfSections >= 3 } sections { [2].VirtualSize > 0 }", ""},
        {"strings { A = { ?? [41] } in file B = { 41 ?? } in file }", "W510"},
        {"strings { A = \"ab\" in file B = \"ab\" nocase in file C = \"ab\" in file }", "W511"},
        {"import_modules { \"a\" } import_functions { #0 \"#0\" #0 \"#65535\" #0 \"F\" }", ""},
        {"import_modules { \"a\" } import_functions { #0 \"#65536\" #0 \"#07\" #0 \"#\" #0 \"#x\" }",
         "W512 W512 W512 W512"},
        {"traits visual_basic header { Magic == 0x20B }", "W503"},
        {"traits native_code header { Magic == 0x10B }", ""},
        {"traits overlay header { Magic == 0x20B }", ""},
        {"header { ImageBaseHigh == 0 Magic == 0x10B }", "W503"},
        {"header { BaseOfData == 0 Magic == 0x20B }", "W503"},
        {"header { NumberOfSections == 2 } strings { A = \"ab\" in section[3] }", "W505"},
        {"header { NumberOfSections == 4 } strings { A = \"ab\" in section[3] }", ""},
        {"header { NumberOfSections == 2 } measures { entropy(section[3]) > 1 }", "W503"},
        {"header { NumberOfSections == 4 } measures { entropy(section[3]) > 1 }", ""},
    };
    for (const auto &[body, codes] : cases)
        EXPECT_EQ(LintCodes("rule 1 \"a\" { " + std::string(body) + " }"), codes) << body;
    EXPECT_EQ(LintCodes("rule 1 \"\" { traits overlay }"), "W513");

    const std::string text = "rule 7 \"a\" { traits overlay } rule 7 \"b\" { traits few_imports }";
    EXPECT_EQ(LintCodes(text), "W509");
    EXPECT_EQ(LintCodes(text, {7}), "");
    EXPECT_EQ(LintCodes(text, {8}), "W509");
    EXPECT_EQ(LintCodes(text + " rule 7 \"c\" { traits entry_in_last }", {7}), "W509");
}

TEST(RuleLints, SayHowToTurnARange) {
    const std::string text = "rule 1 \"a\" { header { FileSize in 500..100 } measures { entropy(file) in 7.5..5.5 } }";
    const Source source = {"lint.rules", text};
    const ParsedFile parsed = ParseRules(text);
    const LintedFile file = {&source, &parsed};
    const std::vector<Diagnostic> lints = FindLints({&file, 1}).at(0);
    ASSERT_EQ(lints.size(), 2u);
    EXPECT_EQ(lints[0].message, "500 is above 100, so the rule never matches");
    EXPECT_EQ(lints[0].help, "swap the bounds: in 100..500");
    EXPECT_EQ(lints[1].help, "swap the bounds: in 5.5..7.5");
}

} // namespace
} // namespace tavrik::tests
