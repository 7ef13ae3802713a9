#include "tools/scanning/scan_options.h"

#include <algorithm>

#include "tools/scanning/exclusions.h"

namespace tavrik::scanning {

scanner::Input InputOf(const std::filesystem::path &path) {
    std::error_code ignored;
    if (path == kStandardInput)
        return {path, scanner::Input::Kind::StandardInput};
    return {path, std::filesystem::is_fifo(path, ignored) ? scanner::Input::Kind::Pipe : scanner::Input::Kind::File};
}

std::string ScanConflict(const ScanOptions &options) {
    if (options.paths.empty() && options.labelled.empty() && !options.path_list)
        return "name the files to scan";
    if (options.only_rule_files && options.rule_files.empty())
        return "--only needs --rules";
    if (!options.labelled.empty() && !options.summary)
        return "--label needs --summary";
    if (options.summary && options.format == scanner::ReportFormat::Csv)
        return "--summary has no CSV form; use --format json";
    if (std::ranges::count(options.paths, kStandardInput) + std::ranges::count(options.rule_files, kStandardInput) +
            (options.path_list == kStandardInput ? 1 : 0) >
        1)
        return "standard input (-) can be read only once";
    if (options.list_separator == '\0' && !options.path_list)
        return "-0 needs the list of --files-from";
    if (options.settings.sha256 && options.format == scanner::ReportFormat::Text)
        return "--sha256 is shown in JSON and CSV only; add --json or --format csv";
    if (options.carve.with_tail && !options.carve_folder)
        return "--carve-tail needs --carve";
    if (options.near_is_found && options.settings.near_conditions == 0)
        return "--near-is-found needs --near";
    const std::vector<std::filesystem::path> known =
        options.path_list || !options.labelled.empty() ? std::vector<std::filesystem::path>() : options.paths;
    for (const std::string &pattern : options.walk.exclude)
        if (std::string reason = WhyNothingMatches(pattern, known); !reason.empty())
            return reason;
    return "";
}

} // namespace tavrik::scanning
