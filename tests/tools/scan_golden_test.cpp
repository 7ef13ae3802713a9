// What tavrik-scan prints, whole: each command line's output, errors and exit code beside a file of tests/data/scan.
#include <regex>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "tests/support/scan_command.h"

namespace tavrik::tests {
namespace {

/** Runs a command line and adds what it says; times and rates, which no two runs share, become "#", and the folder of
 * the test ".". */
void Append(std::string &text, const std::string &arguments) {
    static const std::regex kTimes(R"(in [0-9.]+ s \([0-9]+ files/s, [0-9.]+ MB/s\))");
    const Outcome outcome = Shell(Program() + ' ' + arguments);
    text += "$ tavrik-scan " + arguments + '\n' + outcome.out;
    if (!outcome.err.empty()) {
        std::string errors = std::regex_replace(outcome.err, kTimes, "in # s (# files/s, # MB/s)");
        const std::string folder = fs::current_path().string();
        for (std::size_t place; (place = errors.find(folder)) != std::string::npos;)
            errors.replace(place, folder.size(), ".");
        text += "--- standard error\n" + errors;
    }
    text += fmt::format("--- exit code {}\n\n", outcome.code);
}

/** Compares a text with a file; shows the difference and keeps the text beside the file when they differ. */
void ExpectGolden(const std::string &text, const std::string &name) {
    const fs::path golden = base::ProgramFolder() / "golden" / "scan" / name;
    if (ReadFile(golden) == text)
        return;
    const fs::path actual = golden.string() + ".actual";
    Write(actual, text);
    ADD_FAILURE() << Shell(fmt::format("diff -u '{}' '{}' | head -n 200", golden.string(), actual.string())).out
                  << "if this is what it should print, copy " << actual << " to tests/data/scan/" << name;
}

/** The sample set in samples/, specimens of rules in specimens/, and files that are not PE. */
class ScanOutput : public ScanCommand {
protected:
    ScanOutput() {
        for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
            const samples::Sample sample = samples::MakeSample(index);
            Write(fs::path("samples") / sample.file_name, sample.bytes);
            names_.push_back(sample.file_name);
            entries_.push_back(sample.entry);
        }
        Write("text", "not a program");
        Write("empty", "");
        Write("cut", "MZ");
    }

    /** Specimens of the rules that have clean actions and of some more. */
    static void WriteSpecimens() {
        const rules::RuleSet written = generator::WrittenRules();
        const generator::Generator generator(written);
        const rules::RuleSet database = generator.Rules();
        for (std::size_t place = 0; place < generator.size(); ++place)
            for (const uint32_t rule : {2u, 147u, 173u, 175u, 1000u})
                if (database.rules[place].rule_id == rule)
                    Write(fmt::format("specimens/{}.exe", rule), *generator.SpecimenImage(place));
    }

    std::vector<std::string> names_;
    std::vector<std::optional<uint32_t>> entries_;
};

TEST_F(ScanOutput, OfFilesAndFolders) {
    WriteSpecimens();
    std::string text;
    Append(text, "-r samples specimens text empty cut");
    Append(text, "-r --json --sha256 samples specimens text empty cut missing");
    Append(text, "-q samples missing text");
    Append(text, "--json --max-size 1K text samples/" + names_.front());
    Append(text, "--max-size 1K samples/" + names_.front());
    Append(text, "--timeout 0.0000001 text");
    Append(text, "-r --exclude 'e*' --exclude samples/near* --carve out samples");
    Append(text, "-q -r --json --exclude '[!e]*.exe' --exclude '*auto*' --exclude '*-nullsoft-*' --carve out samples");
    Append(text, "--color always specimens/147.exe samples/" + names_.front() + " missing");
    ExpectGolden(text, "scan.txt");
}

TEST_F(ScanOutput, OfExplanations) {
    WriteSpecimens();
    std::string text;
    for (std::size_t index = 0; index < names_.size(); ++index)
        if (entries_[index])
            Append(text, fmt::format("explain entry:{} samples/{}", *entries_[index], names_[index]));
    for (const char *what : {"16", "27", "entry:7", "entry:28", "entry:29"})
        Append(text, fmt::format("explain {} samples/{}", what, names_.back()));
    for (const char *arguments : {"2 specimens/2.exe", "rule:147 specimens/147.exe", "rule:173 specimens/173.exe",
                                  "rule:175 specimens/175.exe", "1000 specimens/1000.exe", "rule:2 specimens/175.exe",
                                  "Worm.Autorun.LD4 specimens/147.exe", "rule:175 specimens/2.exe"})
        Append(text, std::string("explain ") + arguments);
    for (const char *wrong :
         {"7 text", "7 missing", "7 samples", "entry:50 text", "entry:x text", "rule:x text", "rule:1x text",
          "rule:999999 text", "999999 text", "No.Such.Name text", "entry: text", "'a\nb' text", "7"})
        Append(text, std::string("explain ") + wrong);
    ExpectGolden(text, "explain.txt");
}

TEST_F(ScanOutput, OfListsAnswersAndHelp) {
    std::string text;
    for (const char *arguments : {"locators", "--help", "explain --help", "clean-action --help", "locators --help"})
        Append(text, arguments);
    for (const char *arguments : {"147 text", "173 text", "175 text", "175 text --code 1", "147 text --code 1",
                                  "173 text --code 7423", "146 text", "0 text", "147 missing", "147 samples"})
        Append(text, std::string("clean-action ") + arguments);
    ExpectGolden(text, "commands.txt");
}

TEST_F(ScanOutput, OfWrongCommandLines) {
    std::string text;
    Append(text, "");
    for (const char *arguments : {"--unknown",
                                  "--max-size 2X",
                                  "--max-size -1",
                                  "--max-size K",
                                  "--max-size 99999999999G",
                                  "--max-size ''",
                                  "--max-size 17179869184G",
                                  "--timeout 0",
                                  "--timeout -1",
                                  "--timeout 1e300",
                                  "--timeout 5s",
                                  "-j 0",
                                  "-j 257",
                                  "-j x",
                                  "-0",
                                  "--sha256",
                                  "--color blue",
                                  "--progress often",
                                  "--carve",
                                  "--carve text",
                                  "--files-from nolist",
                                  "--module missing.hbx",
                                  "--module text",
                                  "--exclude",
                                  "locators"})
        Append(text, std::string("text ") + arguments);
    for (const char *arguments : {"locators text", "explain 7 text text", "clean-action x text", "clean-action 147",
                                  "explain", "-j 256 text", "--max-size 16383P text", "--timeout 1e9 text"})
        Append(text, arguments);
    for (const char *size : {"0", "12", "13", "1k", "1m", "17179869183G"})
        Append(text, fmt::format("-q --json --max-size {} text", size));
    ExpectGolden(text, "wrong.txt");
}

} // namespace
} // namespace tavrik::tests
