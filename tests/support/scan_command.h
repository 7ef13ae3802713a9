/* tavrik-scan as its users run it, natively, and files for it. */
#ifndef TAVRIK_TESTS_SUPPORT_SCAN_COMMAND_H
#define TAVRIK_TESTS_SUPPORT_SCAN_COMMAND_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "base/system.h"
#include "samples/samples.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {

namespace fs = std::filesystem;

struct Outcome {
    int code; // -1 when a signal ended the program
    std::string out;
    std::string err;
};

/** Runs a command of the shell in the current folder. */
inline Outcome Shell(const std::string &command) {
    const int status = std::system((command + " >.out 2>.err").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(".out"), ReadFile(".err")};
}

/** tavrik-scan of this build, quoted for the shell. */
inline std::string Program() {
    return '\'' + (base::ProgramFolder() / "tavrik-scan").string() + '\'';
}

/** Runs it without its summary. */
inline Outcome Scan(const std::string &arguments) {
    return Shell(Program() + " -q " + arguments);
}

inline std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/** Writes the sample of that file name and returns its planned line. */
inline std::string WriteSample(const std::string &beginning, const fs::path &path) {
    for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
        const samples::Sample sample = samples::MakeSample(index);
        if (!sample.file_name.starts_with(beginning))
            continue;
        Write(path, sample.bytes);
        return sample.finding ? fmt::format("{}: entry {}, Nullsoft installer, offset {:#x}, size {}\n", path.string(),
                                            *sample.entry, sample.finding->offset, sample.finding->size)
                              : "";
    }
    throw std::invalid_argument("no sample " + beginning);
}

/** A test in a folder of its own. */
class ScanCommand : public testing::Test {
    FreshFolder folder_;
};

} // namespace tavrik::tests

#endif
