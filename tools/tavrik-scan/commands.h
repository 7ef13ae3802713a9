/* The commands of tavrik-scan. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_COMMANDS_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_COMMANDS_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tools/scanning/scan_run.h"

namespace tavrik::scan_tool {

using scanning::ExitCode;
using scanning::kErrorHappened;
using scanning::kFound;
using scanning::kNothingFound;
using scanning::kSignalled;
using scanning::ScanOptions;

/** A command of the program, as the command line knows it. */
struct Command {
    CLI::App *parser; // of its arguments
    std::function<int()> run;
    std::vector<std::string> options; // those of the program that it takes, by their long names
};

/** Each adds a command. The program's `options` must outlive the parser; they are complete when the command runs. */
Command AddExplain(CLI::App &app, const ScanOptions &options);
Command AddMap(CLI::App &app, const ScanOptions &options);
Command AddLocators(CLI::App &app, const ScanOptions &options);
Command AddCleanAction(CLI::App &app, const ScanOptions &options);
Command AddContents(CLI::App &app, const ScanOptions &options);
Command AddUnpack(CLI::App &app, const ScanOptions &options);
Command AddHelp(CLI::App &app, const ScanOptions &options);

/** The error of a file without contents that could be opened. */
inline constexpr char kNothingInside[] =
    "has no payload whose structure is known and is no archive that this build reads; scan it, or name another file";

/** Writes one line about a file to standard error. */
void ReportError(const std::filesystem::path &file, const std::string &reason);

} // namespace tavrik::scan_tool

#endif
