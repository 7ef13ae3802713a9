/* Commands of the shell, and transcripts: command lines with all that they print, in files of tests/data. */
#ifndef TAVRIK_TESTS_SUPPORT_COMMAND_H
#define TAVRIK_TESTS_SUPPORT_COMMAND_H

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "base/system.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {

struct Outcome {
    int code; // -1 when a signal ended the program
    std::string out;
    std::string err;
};

/** Runs a command of the shell in the current folder. Programs of this build need no path. */
inline Outcome Shell(const std::string &command) {
    const std::string path = "PATH='" + base::ProgramFolder().string() + "':\"$PATH\"\n";
    const int status = std::system(("{ " + path + command + "\n} >.out 2>.err").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(".out"), ReadFile(".err")};
}

inline std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/** Runs the command lines of the transcript tests/data/NAME.txt, which come after "$ " at its beginning or after an
 * empty line, in the current folder, and compares what they print, to which stream, and their exit codes with it.
 * Times and rates, which no two runs share, are "#" there, and the current folder is ".". */
inline void ExpectTranscript(const std::string &name) {
    static const std::regex kTimes(R"(in [0-9.]+ s \([0-9]+ files/s, [0-9.]+ MB/s\))");
    static const std::regex kOldKernel(R"(tavrik-(scan|rules): (not confined|confined in part): [^\n]*\n)");
    const std::filesystem::path golden = base::ProgramFolder() / "golden" / (name + ".txt");
    const std::string expected = ReadFile(golden);
    std::string text;
    bool after_gap = true;
    for (const std::string &line : Lines(expected)) {
        if (after_gap && line.starts_with("$ ")) {
            Outcome outcome = Shell(line.substr(2));
            outcome.err = std::regex_replace(outcome.err, kTimes, "in # s (# files/s, # MB/s)");
            outcome.err = std::regex_replace(outcome.err, kOldKernel, "");
            const std::string folder = std::filesystem::current_path().string();
            for (std::size_t at; (at = outcome.err.find(folder)) != std::string::npos;)
                outcome.err.replace(at, folder.size(), ".");
            text += line + '\n' + outcome.out + (outcome.err.empty() ? "" : "--- standard error\n" + outcome.err) +
                    fmt::format("--- exit code {}\n\n", outcome.code);
        }
        after_gap = line.empty();
    }
    if (text == expected && !text.empty())
        return;
    const std::filesystem::path actual = golden.string() + ".actual";
    Write(actual, text);
    ADD_FAILURE() << Shell(fmt::format("diff -u '{}' '{}' | head -n 200", golden.string(), actual.string())).out
                  << "if this is what is to be printed, copy " << actual << " to tests/data/" << name << ".txt";
}

} // namespace tavrik::tests

#endif
