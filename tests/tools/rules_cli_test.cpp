// tavrik-rules as its users run it.
#include <cstdlib>
#include <sys/wait.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/system.h"
#include "rules/record/emitter.h"
#include "tests/support/module_folder.h"
#include "tests/support/packaged_files.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;

class RulesCommand : public testing::Test {
protected:
    // Runs the tool in the test's folder; its output is in "out". Returns its exit code, -1 for a signal.
    static int Run(const std::string &arguments) { return RunShell(Tool("tavrik-rules") + arguments + " >out 2>err"); }

    static std::string Tool(const char *name) { return "'" + (base::ProgramFolder() / name).string() + "' "; }

    static int RunShell(const std::string &command) {
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string small_ = ReadFile(base::ProgramFolder() / "small.rules");

private:
    FreshFolder folder_;
};

TEST_F(RulesCommand, CheckSaysWhatItFoundByItsExitCode) {
    Write("fine.rules", "rule 1 \"a\" { traits overlay }");
    Write("warned.rules", "rule 2 \"b\" { header { Machine == 65536 } }");
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

TEST_F(RulesCommand, FormatKeepsLinksModesAndOtherFiles) {
    const std::string loose = "rule 1 \"\" { traits overlay }";
    const std::string canonical = "rule 1 \"\" for program {\n    traits overlay\n}\n";
    Write("target.rules", loose);
    Write("target.rules.new", "mine");
    Write("link.rules.new", "mine");
    fs::create_symlink("target.rules", "link.rules");
    fs::permissions("target.rules", fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(Run("fmt link.rules"), 0);
    EXPECT_EQ(fs::read_symlink("link.rules"), "target.rules");
    EXPECT_EQ(ReadFile("target.rules"), canonical);
    EXPECT_EQ(fs::status("target.rules").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(ReadFile("target.rules.new") + ReadFile("link.rules.new"), "minemine");
}

TEST_F(RulesCommand, EndsQuietlyWhenNobodyReads) {
    Write("warned.rules", "rule 1 \"r\" { header { Machine == 65536 } }");
    Write("fine.rules", "rule 1 \"r\" { header { Machine == 1 } }");
    const auto run_into = [](const std::string &command, const std::string &reader) {
        return RunShell("bash -c \"(sleep 0.1; " + Tool("tavrik-rules") + command + " 2>err) | " + reader +
                        "; exit \\${PIPESTATUS[0]}\" >out");
    };
    for (const char *command :
         {"dump", "list", "list --json", "show 1", "stats", "stats --verify", "check warned.rules",
          "check --json warned.rules", "export-yara", "fmt - <fine.rules"}) {
        EXPECT_EQ(run_into(command, "true"), 141) << command;
        EXPECT_EQ(ReadFile("err"), "") << command;
    }
    EXPECT_EQ(run_into("dump", "head -1"), 141);
    EXPECT_EQ(ReadFile("out").find("rule "), 0u);
    EXPECT_EQ(RunShell(Tool("tavrik-rules") + "list 2>err >/dev/full"), 3);
    EXPECT_NE(ReadFile("err").find("standard output"), std::string::npos) << ReadFile("err");
}

TEST_F(RulesCommand, TheGeneratorKnowsTheHandWrittenRules) {
    EXPECT_EQ(RunShell(Tool("tavrik-rulegen") + "-o database.rules >out 2>err"), 0) << ReadFile("err");
    EXPECT_EQ(Run("dump"), 0);
    EXPECT_TRUE(ReadFile("out") == ReadFile("database.rules")) << "the module carries another database";
    Write("wrong.rules", "rule");
    EXPECT_EQ(RunShell(Tool("tavrik-rulegen") + "-o none.rules wrong.rules >out 2>err"), 1);
    EXPECT_EQ(RunShell(Tool("tavrik-rulegen") + "-o none.rules missing.rules >out 2>err"), 1);
    EXPECT_NE(ReadFile("err").find("missing.rules: cannot be read"), std::string::npos) << ReadFile("err");
    EXPECT_FALSE(fs::exists("none.rules"));
}

TEST_F(RulesCommand, CompilingAgainChangesNothing) {
    Write("a.rules", small_);
    EXPECT_EQ(Run("compile -o one a.rules"), 0);
    EXPECT_EQ(Run("compile -o two a.rules"), 0);
    const auto long_ago = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const std::string &name : rules::record::DatabaseFileNames()) {
        EXPECT_NE(ReadFile("one/" + name), "") << name;
        EXPECT_EQ(ReadFile("one/" + name), ReadFile("two/" + name)) << name;
        fs::last_write_time("one/" + name, long_ago);
    }
    EXPECT_EQ(Run("compile -o one a.rules"), 0);
    for (const std::string &name : rules::record::DatabaseFileNames())
        EXPECT_LT(fs::last_write_time("one/" + name), long_ago + std::chrono::minutes(1)) << name;
    Write("wrong.rules", "rule");
    EXPECT_EQ(Run("compile -o three wrong.rules"), 1);
    EXPECT_FALSE(fs::exists("three"));
}

TEST_F(RulesCommand, CheckComparesTheRulesOfAllFiles) {
    Write("one.rules", "rule 1 \"One\" { header { Machine == 1 } }");
    Write("two.rules", "\n  rule 2 \"Two\" { header { Machine == 1 Magic == 2 } }");
    EXPECT_EQ(Run("check one.rules"), 0);
    EXPECT_EQ(Run("check two.rules one.rules"), 2);
    const std::string out = ReadFile("out");
    EXPECT_NE(out.find("two.rules:2:3: warning[W508]: "), std::string::npos) << out;
    EXPECT_NE(out.find("rule 1 \"One\" (one.rules:1:1)"), std::string::npos) << out;
}

TEST_F(RulesCommand, ASpecimenIsFoundByItsRuleAlone) {
    EXPECT_EQ(Run("specimen 173 -o worm.exe"), 0);
    const std::string worm = ReadFile("worm.exe");
    ASSERT_NE(worm, "");
    Write("worm.exe", "mine");
    EXPECT_EQ(Run("specimen 175 -o worm.exe"), 3);
    EXPECT_EQ(ReadFile("worm.exe"), "mine");
    EXPECT_EQ(Run("specimen 173 -o worm.exe --force"), 0);
    EXPECT_EQ(ReadFile("worm.exe"), worm);
    EXPECT_EQ(Run("specimen 9532 -o none.exe"), 1);
    EXPECT_NE(ReadFile("err").find("9531"), std::string::npos) << "the nearest id";
    EXPECT_EQ(Run("specimen 4192 -o none.exe"), 1);
    EXPECT_FALSE(fs::exists("none.exe"));

    const std::string err = ReadFile("err"); // both places
    const std::string place = err.substr(err.find("--place ") + 8, 5);
    EXPECT_EQ(Run("specimen 4192 --place " + place + " -o second.exe"), 0);

    EXPECT_EQ(Run("dump"), 0);
    fs::rename("out", "all");
    fs::create_directory("folder");
    fs::rename("second.exe", "folder/second.exe");
    fs::copy_file(base::ProgramFolder() / "tavrik-rules", "folder/no.exe");
    const std::vector<fs::path> clean = PackagedFiles();
    ASSERT_FALSE(clean.empty());
    EXPECT_EQ(Run("try --rules all -r --json worm.exe folder '" + clean.front().string() + "'"), 0);
    std::istringstream lines(ReadFile("out"));
    std::vector<nlohmann::json> files;
    for (std::string line; std::getline(lines, line);)
        files.push_back(nlohmann::json::parse(line));
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[3]["matches"].size(), 0u);
    ASSERT_EQ(files[0]["matches"].size(), 1u);
    EXPECT_EQ(files[0]["matches"][0]["rule"], 173);
    EXPECT_EQ(files[1]["file"], "folder/no.exe");
    EXPECT_EQ(files[1]["pe"], false);
    ASSERT_EQ(files[2]["matches"].size(), 1u);
    EXPECT_EQ(files[2]["matches"][0]["rule"], 4192);
}

TEST_F(RulesCommand, TryGoesOnAfterWhatCannotBeRead) {
    EXPECT_EQ(Run("specimen 173 -o worm.exe"), 0);
    Write("fits.rules", "rule 1 \"Fits\" { header { Machine == 0x14C Subsystem == 2 } }");
    Write("fails.rules", "rule 2 \"Fails\" { header { Machine != 0x14C } }");
    EXPECT_EQ(Run("try fits.rules fails.rules missing.exe . worm.exe --explain"), 3);
    const std::string out = ReadFile("out");
    EXPECT_NE(out.find("worm.exe: rule 1 \"Fits\"\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("worm.exe: rule 2 \"Fails\"\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\nFAIL"), std::string::npos) << out;
    EXPECT_NE(out.find("2 rules, 3 files: 1 matched, 0 not PE, 2 errors\n"), std::string::npos) << out;
    Write("wrong.rules", "rule");
    EXPECT_EQ(Run("try wrong.rules worm.exe"), 1);
    EXPECT_EQ(Run("try fits.rules"), 3);
    EXPECT_EQ(Run("try worm.exe"), 3);
}

TEST_F(RulesCommand, ExportsWhatYaraCanSay) {
    Write("a.rules",
          "rule 7 \"Fits\" { header { Machine == 0x14C Subsystem == 2 | 3 FileSize < 4096 } sections { "
          "[1].VirtualSize != 5 } section_names { last == \".rsrc\" } strings { A = \"a\\\\bc\" wide nocase in "
          "section[1] at 4 B = { 4D ?? 5A 90 } in file C = \"xyz\" in overlay } when (A|B) }\n"
          "rule 7 \"Imports\" { import_modules { \"a.dll\" } }\n"
          "rule 8 \"Common\" { header { e_cp == 0 } strings { A = { 00 00 00 00 } in file } }");
    EXPECT_EQ(Run("export-yara a.rules -o a.yar --report why"), 0);
    const std::string text = ReadFile("a.yar");
    for (const char *part :
         {"rule rule_7_0 {", "name = \"Fits\"", "$a = \"a\\x00\\\\\\x00b\\x00c\\x00\" nocase\n",
          "$b = { 4D ?? 5A 90 }\n", "filesize < 0x1000",
          "(uint16(uint32(0x3C) + 0x5C) == 0x2 or uint16(uint32(0x3C) + 0x5C) == 0x3)", "n >= 2 and"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
    EXPECT_EQ(text.find("rule_7_1"), std::string::npos);
    EXPECT_EQ(text.find("rule_8_0"), std::string::npos);
    const std::string why = ReadFile("why");
    EXPECT_NE(why.find("7\tImports\timport names"), std::string::npos) << why;
    EXPECT_NE(why.find("8\tCommon\ta string that may occur more often"), std::string::npos) << why;
    EXPECT_NE(ReadFile("err").find("1 rule written, 2 not:\n"), std::string::npos) << ReadFile("err");
}

} // namespace
} // namespace tavrik::tests
