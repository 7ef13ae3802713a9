#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/exclusions.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kInputGroup[] = "Which files";

} // namespace

void AddInputOptions(CLI::App &app, ScanOptions &options) {
    app.add_flag("-r,--recursive", options.walk.recursive, "scan the files in folders and their subfolders")
        ->group(kInputGroup);
    AddValue(app, "--files-from", "LIST", "scan the paths in LIST, one per line (LF or CRLF); - is standard input",
             kInputGroup, [&](const std::string &text) { options.path_list = base::PathOf(text); });
    app.add_flag_callback(
           "-0,--null", [&] { options.list_separator = '\0'; }, "the paths in LIST end with NUL (find -print0)")
        ->group(kInputGroup);
    app.add_option_function<std::vector<std::string>>(
           "--exclude",
           [&](const std::vector<std::string> &patterns) {
               for (const std::string &pattern : patterns)
                   options.walk.exclude.push_back(WithoutTrailingSeparators(WithoutMark(pattern)));
           },
           "leave out files and folders whose name, or whole path if PATTERN contains / before its end, matches; *, ? "
           "and [a-z] are wildcards; repeatable")
        ->type_name("PATTERN")
        ->allow_extra_args(false)
        ->group(kInputGroup);
    AddValue(app, "--max-size", "SIZE", "skip larger files; in bytes, or like 500K, 1.5M or 2G", kInputGroup,
             [&](const std::string &text) { options.settings.max_size = RequireSize("--max-size", text); });
}

} // namespace tavrik::scanning
