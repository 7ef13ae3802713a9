#include "tools/tavrik-scan/scan_options.h"

#include <algorithm>

#include "tools/tavrik-scan/exclusions.h"

namespace tavrik::scan_tool {

std::string ScanConflict(const ScanOptions &options) {
    if (options.paths.empty() && !options.path_list)
        return "name the files to scan";
    if (std::ranges::count(options.paths, kStandardInput) + (options.path_list == kStandardInput ? 1 : 0) > 1)
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
        options.path_list ? std::vector<std::filesystem::path>() : options.paths;
    for (const std::string &pattern : options.walk.exclude)
        if (std::string reason = WhyNothingMatches(pattern, known); !reason.empty())
            return reason;
    return "";
}

} // namespace tavrik::scan_tool
