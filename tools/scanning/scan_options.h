/* The options of a scan, and the groups of the command line that set them. */
#ifndef TAVRIK_TOOLS_SCANNING_SCAN_OPTIONS_H
#define TAVRIK_TOOLS_SCANNING_SCAN_OPTIONS_H

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

namespace tavrik::scanning {

/** A folder or file with the name that a summary has for it. */
struct LabelledPath {
    std::string label;
    std::filesystem::path path;
};

/** The path that means standard input. */
inline constexpr char kStandardInput[] = "-";

/** The options of a run; a command that is no scan takes some of them. */
struct ScanOptions {
    std::string program = "tavrik-scan"; // that lines on standard error begin with

    std::optional<std::filesystem::path> module; // to load; nothing: only the rules of `rule_files` are asked
    std::vector<std::string> rule_files;         // "-" is standard input
    bool only_rule_files = false;                // the module's rules are left out
    bool summary = false;                        // of the rules, at the end
    std::vector<LabelledPath> labelled;          // files and folders to scan besides `paths`
    bool explain = false;                        // print the conditions of all rules for each file

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
void AddRuleOptions(CLI::App &app, ScanOptions &options);
void AddSummaryOptions(CLI::App &app, ScanOptions &options);
void AddWorkOptions(CLI::App &app, ScanOptions &options);
void AddModuleOptions(CLI::App &app, ScanOptions &options);
void AddPayloadOptions(CLI::App &app, ScanOptions &options);
void AddInsideOptions(CLI::App &app, ScanOptions &options);
void AddNearOptions(CLI::App &app, ScanOptions &options);
void AddOutputOptions(CLI::App &app, ScanOptions &options);

/** What a path that the user names means: a file or folder, a pipe, or standard input. */
scanner::Input InputOf(const std::filesystem::path &path);

/** Gives --near the number that follows it, or else the default, as its value, so that the parser does not take a file
 * for it. */
void JoinNear(std::vector<std::string> &arguments);

/** What is wrong with options that do not go together in a scan; "" when nothing is. */
std::string ScanConflict(const ScanOptions &options);

} // namespace tavrik::scanning

#endif
