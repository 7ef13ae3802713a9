#include "tools/tavrik-scan/scan_options.h"

namespace tavrik::scan_tool {

std::string ScanConflict(const ScanOptions &options) {
    if (options.paths.empty() && !options.path_list)
        return "name the files to scan";
    if (options.list_separator == '\0' && !options.path_list)
        return "-0 needs the list of --files-from";
    if (options.settings.sha256 && options.format == scanner::ReportFormat::Text)
        return "--sha256 is in JSON only; add --json";
    return "";
}

} // namespace tavrik::scan_tool
