// Rules made from files: what is shared, what a corpus has, and what no rule can tell apart.
#include <gtest/gtest.h>

#include "draft/drafter.h"
#include "evaluation/evaluator.h"
#include "pe/builder/builder.h"
#include "rules/analysis/lints.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

using base::Bytes;

struct Build {
    uint32_t size = 0x800;         // of the code
    uint32_t TimeDateStamp = 1;    // of each build its own
    const char16_t *company = u""; // in the version resource
    std::string text = {};         // in the code
    uint32_t SizeOfStackReserve = 0x100000;
};

Bytes BytesOf(const Build &build) {
    using namespace pe::builder;
    PeImage image;
    image.headers.TimeDateStamp = build.TimeDateStamp;
    image.headers.SizeOfStackReserve = build.SizeOfStackReserve;
    Bytes code(build.size, 0xC3);
    for (std::size_t i = 0; i < build.size; i += 7)
        code[i] = static_cast<uint8_t>(i);
    std::copy(build.text.begin(), build.text.end(), code.begin() + 0x123);
    VersionInfo version;
    version.strings = {{u"CompanyName", build.company}};
    image.sections = {
        {.name = ".text", .Characteristics = kCodeSection, .pieces = {{code}}},
        {.name = ".idata",
         .pieces = {{ImportTable{{{"KERNEL32.dll", {"ExitProcess", uint16_t{3}}}, {"USER32.dll", {}}}}}}},
        {.name = ".rsrc", .pieces = {{ResourceTable{{{.type = pe::resource_type::kVersion, .data = version.Lay()}}}}}}};
    return image.Build().bytes;
}

std::string WriteBuild(const std::string &name, const Build &build) {
    const Bytes bytes = BytesOf(build);
    Write(name, std::span<const uint8_t>(bytes));
    return name;
}

/** Which of the files a text's only rule matches; `check` has nothing to say about it. */
std::vector<bool> Matched(const std::string &text, const std::vector<std::string> &names) {
    const rules::text::Source source = {"draft.rules", text};
    const rules::text::ParsedFile parsed = rules::text::ParseRules(text);
    EXPECT_TRUE(parsed.diagnostics.empty()) << text;
    const rules::analysis::LintedFile file = {&source, &parsed};
    const std::vector<std::vector<rules::text::Diagnostic>> lints = rules::analysis::FindLints({&file, 1});
    for (const rules::text::Diagnostic &lint : lints.at(0))
        ADD_FAILURE() << rules::text::Render(source, lint);
    const rules::record::RecordSet records(parsed.set);
    std::vector<bool> matched;
    for (const std::string &name : names) {
        base::FileSource bytes(name);
        evaluation::Features features(bytes);
        matched.push_back(evaluation::Matches(*records.rules().front(), features));
    }
    return matched;
}

const std::string kText = "connect to the mothership at dawn";

TEST(Draft, MatchesItsFilesAndAsFewOthersAsCanBe) {
    const FreshFolder folder;
    const std::vector<std::string> family = {
        WriteBuild("a.exe", {.size = 0x800, .TimeDateStamp = 11, .company = u"Acme", .text = kText}),
        WriteBuild("b.exe", {.size = 0xA00, .TimeDateStamp = 12, .company = u"Acme", .text = kText}),
        WriteBuild("c.exe", {.size = 0xC00, .TimeDateStamp = 13, .company = u"Acme", .text = kText})};
    const std::vector<std::string> others = {
        WriteBuild("d.exe", {.size = 0xA00, .TimeDateStamp = 12, .company = u"Acme", .text = ""}),
        WriteBuild("e.exe", {.size = 0xA00, .TimeDateStamp = 12, .company = u"Other", .text = kText}),
        WriteBuild("f.exe", {.size = 0x4000, .TimeDateStamp = 12, .company = u"Acme", .text = kText})};
    const draft::GivenFiles given(family);

    draft::Draft made = draft::MakeDraft(given, {7, "Family", {"d.exe", "e.exe", "f.exe", "b.exe", "gone.exe"}});
    EXPECT_TRUE(made.hits.empty());
    EXPECT_EQ(made.corpus.files.size(), 3u);
    EXPECT_EQ(made.corpus.same, 1u);
    EXPECT_EQ(made.corpus.failed.size(), 1u);
    EXPECT_EQ(Matched(made.text, family), (std::vector<bool>{true, true, true}));
    EXPECT_EQ(Matched(made.text, others), (std::vector<bool>{false, false, false}));
    EXPECT_TRUE(made.text.starts_with("rule 7 \"Family\" for program {\n    meta {\n        sample \"")) << made.text;
    EXPECT_NE(made.text.find(", leaves 0\n"), std::string::npos) << made.text;

    // Another build of the family is in the corpus: no condition can tell it apart, and that is said.
    WriteBuild("g.exe", {.size = 0xA00, .TimeDateStamp = 14, .company = u"Acme", .text = kText});
    made = draft::MakeDraft(given, {7, "Family", {"d.exe", "g.exe"}});
    ASSERT_EQ(made.hits, std::vector<std::size_t>{1});
    EXPECT_EQ(Matched(made.text, {"a.exe", "d.exe", "g.exe"}), (std::vector<bool>{true, false, true}));

    // Without a corpus it asks for what says most.
    made = draft::MakeDraft(given, {7, "Family", {}});
    for (const char *row : {"CompanyName \"Acme\"", "\"connect to the mothership at dawn\""})
        EXPECT_NE(made.text.find(row), std::string::npos) << made.text;
    EXPECT_EQ(Matched(made.text, family), (std::vector<bool>{true, true, true}));
}

TEST(Draft, AsksForRangesWhereNothingElseTellsFilesApart) {
    const FreshFolder folder;
    const std::vector<std::string> names = {WriteBuild("a.exe", {.SizeOfStackReserve = 0x180000}),
                                            WriteBuild("b.exe", {.SizeOfStackReserve = 0x120000}),
                                            WriteBuild("low.exe", {.SizeOfStackReserve = 0x11F000}),
                                            WriteBuild("high.exe", {.SizeOfStackReserve = 0x181000})};
    const std::vector<std::string> family = {names[0], names[1]};
    const draft::Draft made = draft::MakeDraft(draft::GivenFiles(family), {7, "Family", {"low.exe", "high.exe"}});
    EXPECT_TRUE(made.hits.empty()) << made.text;
    EXPECT_EQ(Matched(made.text, names), (std::vector<bool>{true, true, false, false})) << made.text;
}

TEST(Draft, ValuesAreARuleThatTheFilesMatch) {
    const FreshFolder folder;
    const std::vector<std::string> names = {
        WriteBuild("a.exe", {.size = 0x800, .TimeDateStamp = 11, .company = u"Acme", .text = kText}),
        WriteBuild("b.exe", {.size = 0x800, .TimeDateStamp = 12, .company = u"Acme", .text = kText}),
        WriteBuild("c.exe", {.size = 0x800, .TimeDateStamp = 11, .company = u"Zenith", .text = kText})};
    const auto values = [](const std::vector<std::string> &files) {
        const draft::GivenFiles given(files);
        return rules::text::PrintRule(draft::RuleOf(given, draft::SharedRows(given, rules::kMaxStrings)));
    };
    const auto matched = [&names](const std::string &text) {
        const rules::text::ParsedFile parsed = rules::text::ParseRules(text);
        EXPECT_TRUE(parsed.diagnostics.empty()) << text;
        const rules::record::RecordSet records(parsed.set);
        std::vector<bool> all;
        for (const std::string &name : names) {
            base::FileSource source(name);
            evaluation::Features features(source);
            all.push_back(evaluation::Matches(*records.rules().front(), features));
        }
        return all;
    };
    const std::string of_one = values({"a.exe"});
    EXPECT_EQ(matched(of_one), (std::vector<bool>{true, false, false}));
    for (const char *row :
         {"TimeDateStamp ", "#0 \"#3\"", "#0 \"ExitProcess\"", "\"USER32.dll\"\n", "VERSION[any].CompanyName \"Acme\"",
          "== \".idata\"", "= \"connect to the mothership at dawn\" in section[0] at 0x123 drift",
          "entropy(section[2])", "type[16]", "VERSION[1] language 0x409 crc32"})
        EXPECT_NE(of_one.find(row), std::string::npos) << row << "\n" << of_one;
    EXPECT_EQ(of_one.find("This program"), std::string::npos) << "the stub is that of every program";
    const std::string of_two = values({"a.exe", "b.exe"});
    EXPECT_EQ(matched(of_two), (std::vector<bool>{true, true, false}));
    EXPECT_EQ(of_two.find("        TimeDateStamp "), std::string::npos) << of_two;
}

} // namespace
} // namespace tavrik::tests
