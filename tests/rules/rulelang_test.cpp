// The rule language: from text to rules and back, through the compiler and the records, and what is refused.
#include <algorithm>
#include <set>
#include <sstream>

#include <fmt/format.h>
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

/** The findings of a text, each as "-- E101 4:7 its message". */
std::vector<std::string> Findings(const std::string &text) {
    std::vector<std::string> findings;
    for (const Diagnostic &diagnostic : ParseRules(text).diagnostics) {
        const Place place = PlaceOf(text, diagnostic.offset);
        findings.push_back(
            fmt::format("-- {} {}:{} {}", CodeText(diagnostic.code), place.line, place.column, diagnostic.message));
    }
    return findings;
}

/** The lines of a file of tests/data but for its comments and, before a text begins, empty ones. */
std::vector<std::string> DataLines(const char *name) {
    std::istringstream file(ReadFile(base::ProgramFolder() / "golden" / name));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && !line.starts_with("# "))
            lines.push_back(line);
    return lines;
}

TEST(RuleErrors, EveryMistakeIsReportedAtItsPlace) {
    const std::vector<std::string> lines = DataLines("mistakes.txt");
    std::size_t texts = 0;
    for (std::size_t at = 0; at < lines.size(); ++texts) {
        ASSERT_TRUE(lines[at].starts_with("== ")) << lines[at];
        std::string text;
        for (++at; at < lines.size() && !lines[at].starts_with("== ") && !lines[at].starts_with("-- "); ++at)
            text += (text.empty() ? "" : "\n") + lines[at];
        const std::vector<std::string> findings = Findings(text);
        std::size_t expected = 0;
        for (; at < lines.size() && lines[at].starts_with("-- "); ++at, ++expected) {
            const std::size_t part = lines[at].find(' ', lines[at].find(':')) + 1;
            ASSERT_LT(expected, findings.size()) << text << "\n" << lines[at];
            EXPECT_TRUE(findings[expected].starts_with(lines[at].substr(0, part)) &&
                        findings[expected].find(lines[at].substr(part), part) != std::string::npos)
                << text << "\n"
                << lines[at] << "\n"
                << findings[expected];
        }
        EXPECT_EQ(findings.size(), expected) << text << "\n" << testing::PrintToString(findings);
    }
    EXPECT_GT(texts, 30u);
    EXPECT_TRUE(Findings(std::string("rule 1 \"\" { traits 1 } \0 /* x", 29)).at(0).starts_with("-- E005 1:24 "));
    for (const std::string &utf_16 : {std::string("r\0u\0l\0e\0 \0", 10), std::string("\xFF\xFEr")})
        EXPECT_TRUE(Findings(utf_16).at(0).starts_with("-- E006 1:1 "));
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

TEST(RuleLints, FindWhatNoFileMeetsAndWhatIsOfNoUse) {
    std::size_t cases = 0;
    for (const std::string &line : DataLines("lints.txt")) {
        const std::size_t blank = line.find(' ');
        std::string codes = line.substr(0, blank);
        std::ranges::replace(codes, ',', ' ');
        std::string body = line.substr(blank + 1);
        if (const std::size_t slashes = body.find("//"); slashes != std::string::npos)
            body.replace(slashes, 2, "} rule 2 \"b\" {");
        EXPECT_EQ(LintCodes("rule 1 \"a\" { " + body + " }"), codes == "-" ? "" : codes) << line;
        ++cases;
    }
    EXPECT_GT(cases, 100u);
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
