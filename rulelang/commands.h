// The commands of tavrik-rules.
#ifndef TAVRIK_RULELANG_COMMANDS_H
#define TAVRIK_RULELANG_COMMANDS_H

#include "rulelang/model.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::rules {

enum ExitCode : int {
    kFine = 0,
    kErrorsFound = 1,   ///< in the rules; a profile that is not met; texts that fmt --check would change
    kWarningsFound = 2, ///< and no errors (check alone)
    kFailed = 3,        ///< wrong usage, or a file or module that cannot be read or written
};

/// check: parses every file and prints what it finds, as text or as JSON Lines.
ExitCode Check(const std::vector<std::string> &files, bool json);

/// compile: all files, in order, to the database's source in `folder`. Files whose text is the same are left alone.
ExitCode Compile(const std::vector<std::string> &files, const std::filesystem::path &folder);

/// fmt: rewrites each file in place; with `check` lists those that would change; "-" is standard input to output.
ExitCode Format(const std::vector<std::string> &files, bool check);

/// Where rules come from: text files or, without any, a module.
struct RuleSource {
    std::vector<std::string> files;
    std::string module; ///< empty: beside the program
};

/// dump: all rules as canonical text.
ExitCode Dump(const RuleSource &source);

/// stats: counts of lists and values; with `verify` every fact of the published profile, expected and actual.
ExitCode Stats(const RuleSource &source, bool verify, bool json);

/// list: a line for each rule.
ExitCode List(const RuleSource &source, bool json);

/// show: the text of the rules with a number, or of those whose name contains `wanted`.
ExitCode Show(const RuleSource &source, const std::string &wanted);

} // namespace tavrik::rules

#endif
