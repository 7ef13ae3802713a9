// Every diagnostic: its example in tests/data/diagnostics and its row in docs/diagnostics.md.
#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "base/system.h"
#include "rules/analysis/lints.h"
#include "rules/text/rule_files.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using namespace rules::text;

fs::path Folder() {
    return base::ProgramFolder() / "diagnostics";
}

// What `tavrik-rules check` says about a file.
std::string Checked(const fs::path &path) {
    RuleFileReader reader;
    reader.Read(path.string());
    const Source source = {path.filename().string(), reader.files().back()->source.text};
    ParsedFile &parsed = reader.files().back()->parsed;
    if (!HasErrors(parsed.diagnostics)) {
        const rules::analysis::LintedFile file = {&source, &parsed};
        std::ranges::move(rules::analysis::FindLints({&file, 1}).at(0), std::back_inserter(parsed.diagnostics));
        std::ranges::stable_sort(parsed.diagnostics, {}, &Diagnostic::offset);
    }
    std::string all;
    for (const Diagnostic &diagnostic : parsed.diagnostics)
        all += Render(source, diagnostic);
    return all;
}

TEST(Diagnostics, ReadAsTheExamplesSay) {
    std::set<std::string> examples;
    for (const fs::directory_entry &entry : fs::directory_iterator(Folder())) {
        if (entry.path().extension() != ".rules")
            continue;
        const std::string stem = entry.path().stem().string();
        const std::string said = Checked(entry.path());
        EXPECT_EQ(said, ReadFile(Folder() / (stem + ".txt"))) << stem;
        EXPECT_NE(said.find("[" + stem.substr(0, 4) + "]"), std::string::npos) << stem;
        examples.insert(stem.substr(0, 4));
    }
    for (const Code code : Codes())
        EXPECT_TRUE(examples.contains(std::string(CodeText(code)))) << "no example of " << CodeText(code);
    EXPECT_EQ(examples.size(), Codes().size());
}

// Whether the pieces of `pattern` between its ellipses are in the text, in order.
bool Fits(std::string_view text, std::string_view pattern) {
    constexpr std::string_view kAny = "\xE2\x80\xA6";
    while (!pattern.empty()) {
        const std::size_t end = std::min(pattern.find(kAny), pattern.size());
        const std::size_t found = text.find(pattern.substr(0, end));
        if (found == std::string_view::npos)
            return false;
        text.remove_prefix(found + end);
        pattern.remove_prefix(std::min(end + kAny.size(), pattern.size()));
    }
    return true;
}

TEST(Diagnostics, AreDocumentedInTheirOrder) {
    std::istringstream lines(ReadFile(Folder() / "diagnostics.md"));
    std::vector<std::string> codes;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("| E") && !line.starts_with("| W"))
            continue;
        const std::string code = line.substr(2, 4);
        const std::string says = line.substr(9, line.find(" | ", 9) - 9);
        EXPECT_TRUE(Fits(ReadFile(Folder() / (code + ".txt")), says)) << code << ": " << says;
        codes.push_back(code);
    }
    std::vector<std::string> expected;
    for (const Code code : Codes())
        expected.emplace_back(CodeText(code));
    EXPECT_EQ(codes, expected);
    EXPECT_TRUE(std::ranges::is_sorted(expected));
}

} // namespace
} // namespace tavrik::tests
