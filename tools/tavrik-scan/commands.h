/* The commands of tavrik-scan. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_COMMANDS_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_COMMANDS_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/console.h"
#include "base/walk.h"
#include "scanner/scan.h"

namespace tavrik::scan_tool {

/** The program's exit codes; if several apply, the greatest. */
enum ExitCode {
    kNothingFound = 0,
    kFound = 1,
    kErrorHappened = 2,
    kSignalled = 128,   // plus the number of the signal that asked the program to end
    kOutputClosed = 141 // the same as if SIGPIPE had ended the program
};

struct ScanOptions {
    std::vector<std::filesystem::path> paths;
    std::optional<std::filesystem::path> path_list; // "-" is standard input
    char list_separator = '\n';
    base::WalkSettings walk;

    scanner::ScanSettings settings;
    unsigned threads = 1;
    std::optional<std::filesystem::path> carve_folder;

    bool json = false;
    bool quiet = false;
    bool profile = false;
    base::When colour = base::When::Auto;
    base::When progress = base::When::Auto;
};

/** Scans files and folders as the options say. Returns an ExitCode, or kSignalled plus a signal's number. */
int RunScan(const std::filesystem::path &module, const ScanOptions &options);

/** Explains why an entry and rules do or do not match one file. `what` is "entry:N", "rule:ID", a number for both, or
 * a detection name. */
ExitCode RunExplain(const std::filesystem::path &module, const std::string &what, const std::filesystem::path &file);

/** Lists the entries of the locator table. */
ExitCode RunLocators();

/** Asks the module for the clean action of a rule; kFound when one applies. */
ExitCode RunCleanAction(const std::filesystem::path &module, uint32_t rule_id, const std::filesystem::path &file,
                        uint32_t code);

/** Writes one line about a file to standard error. */
void ReportError(const std::filesystem::path &file, const std::string &reason);

} // namespace tavrik::scan_tool

#endif
