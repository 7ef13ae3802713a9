/* The options of a scan, and the groups of the command line that set them. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_SCAN_OPTIONS_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_SCAN_OPTIONS_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/console.h"
#include "base/walk.h"
#include "scanner/carve.h"
#include "scanner/report.h"
#include "scanner/scan.h"

namespace CLI { // NOLINT(readability-identifier-naming): the library's
class App;
}

namespace tavrik::scan_tool {

/** The path that means standard input. */
inline constexpr char kStandardInput[] = "-";

/** The program's options; a command that is no scan takes some of them. */
struct ScanOptions {
    std::filesystem::path module; // to load

    std::vector<std::filesystem::path> paths;
    std::optional<std::filesystem::path> path_list; // "-" is standard input
    char list_separator = '\n';
    base::WalkSettings walk;

    scanner::ScanSettings settings;
    unsigned threads = 1;
    bool sandbox = true; // the program confines itself
    std::optional<std::filesystem::path> carve_folder;
    scanner::CarveSettings carve;

    scanner::ReportFormat format = scanner::ReportFormat::Text;
    bool near_is_found = false;            // for the exit code
    std::filesystem::path report;          // the HTML file to write; "" for none
    std::vector<std::string> command_line; // for the report
    bool quiet = false;
    bool exit_zero = false; // also when something is found
    bool profile = false;
    base::When colour = base::When::Auto;
    base::When progress = base::When::Auto;
};

/** Each adds a group of options that set `options`, which must outlive the parser. */
void AddInputOptions(CLI::App &app, ScanOptions &options);
void AddWorkOptions(CLI::App &app, ScanOptions &options);
void AddPayloadOptions(CLI::App &app, ScanOptions &options);
void AddNearOptions(CLI::App &app, ScanOptions &options);
void AddOutputOptions(CLI::App &app, ScanOptions &options);

/** Gives --near the number that follows it, or else the default, as its value, so that the parser does not take a file
 * for it. */
void JoinNear(std::vector<std::string> &arguments);

/** What is wrong with options that do not go together in a scan; "" when nothing is. */
std::string ScanConflict(const ScanOptions &options);

} // namespace tavrik::scan_tool

#endif
