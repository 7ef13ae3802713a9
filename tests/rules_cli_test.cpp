// tavrik-rules as its users run it.
#include <cstdlib>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

#include "host/system.h"
#include "rulelang/emitter.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;

class RulesCommand : public testing::Test {
protected:
    // Runs the tool in the test's folder; its output stands in "out". Returns its exit code, -1 for a signal.
    static int Run(const std::string &arguments) {
        const std::string tool = (host::ProgramFolder() / "tavrik-rules").string();
        const int status = std::system(("'" + tool + "' " + arguments + " >out 2>err").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static void Write(const fs::path &path, std::string_view text) { std::ofstream(path, std::ios::binary) << text; }

    const std::string small_ = ReadFile(host::ProgramFolder() / "small.rules");

private:
    FreshFolder folder_;
};

TEST_F(RulesCommand, CheckSaysWhatItFoundByItsExitCode) {
    Write("fine.rules", small_);
    Write("warned.rules", "rule 1 \"\" { header { Machine == 65536 } }");
    Write("wrong.rules", "rule 1 \"\xFF\" { header { Machin == 1\nNope == 1 } }");
    EXPECT_EQ(Run("check fine.rules"), 0);
    EXPECT_EQ(Run("check fine.rules warned.rules"), 2);
    EXPECT_EQ(Run("check wrong.rules warned.rules"), 1);
    EXPECT_EQ(Run("check missing.rules"), 3);
    EXPECT_NE(ReadFile("err").find("missing.rules"), std::string::npos);
    EXPECT_EQ(Run("check ."), 3);
    EXPECT_EQ(Run("check"), 3);
    EXPECT_EQ(Run("--help"), 0);

    EXPECT_EQ(Run("check --json wrong.rules warned.rules"), 1);
    std::istringstream lines(ReadFile("out"));
    std::vector<nlohmann::json> findings;
    for (std::string line; std::getline(lines, line);)
        findings.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(findings.size(), 3u);
    EXPECT_EQ(findings[1]["file"], "wrong.rules");
    EXPECT_EQ(findings[1]["line"], 2);
    EXPECT_EQ(findings[1]["code"], "E203");
    EXPECT_EQ(findings[2]["severity"], "warning");
}

TEST_F(RulesCommand, FormatRewritesOnlyWhatIsNotCanonical) {
    Write("a.rules", small_);
    const std::string loose = "rule 1 \"\" { traits overlay } // why\n";
    Write("b.rules", loose);
    EXPECT_EQ(Run("fmt --check a.rules b.rules"), 1);
    EXPECT_EQ(ReadFile("out"), "b.rules\n");
    EXPECT_EQ(ReadFile("b.rules"), loose);
    EXPECT_EQ(Run("fmt a.rules b.rules"), 0);
    EXPECT_EQ(ReadFile("a.rules"), small_);
    EXPECT_EQ(ReadFile("b.rules"), "rule 1 \"\" for program {\n    traits overlay\n}  // why\n");
    EXPECT_EQ(Run("fmt --check a.rules b.rules"), 0);
    EXPECT_EQ(Run("fmt - <b.rules"), 0);
    EXPECT_EQ(ReadFile("out"), ReadFile("b.rules"));
    EXPECT_EQ(Run("dump b.rules a.rules"), 0);
    EXPECT_EQ(ReadFile("out"), "rule 1 \"\" for program {\n    traits overlay\n}\n\n" + small_);
}

TEST_F(RulesCommand, CompilingAgainChangesNothing) {
    Write("a.rules", small_);
    EXPECT_EQ(Run("compile -o one a.rules"), 0);
    EXPECT_EQ(Run("compile -o two a.rules"), 0);
    const auto long_ago = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const std::string &name : rules::DatabaseFileNames()) {
        EXPECT_NE(ReadFile("one/" + name), "") << name;
        EXPECT_EQ(ReadFile("one/" + name), ReadFile("two/" + name)) << name;
        fs::last_write_time("one/" + name, long_ago);
    }
    EXPECT_EQ(Run("compile -o one a.rules"), 0);
    for (const std::string &name : rules::DatabaseFileNames())
        EXPECT_LT(fs::last_write_time("one/" + name), long_ago + std::chrono::minutes(1)) << name;
    Write("wrong.rules", "rule");
    EXPECT_EQ(Run("compile -o three wrong.rules"), 1);
    EXPECT_FALSE(fs::exists("three"));
}

} // namespace
} // namespace tavrik::tests
