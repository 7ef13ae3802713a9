#include <algorithm>

#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kPayloadGroup[] = "Payloads";
constexpr uint64_t kGreatestDepth = 16; // each needs room on the stack

} // namespace

void AddInsideOptions(CLI::App &app, ScanOptions &options) {
    scanner::ScanSettings &settings = options.settings;
    app.add_flag_callback(
           "--no-inside", [&settings] { settings.inside = false; },
           "do not scan the files inside payloads and archives")
        ->group(kPayloadGroup);
    app.add_flag_callback(
           "--inside", [&settings] { settings.inside = true; },
           settings.inside ? "scan the files inside payloads and archives (default)"
                           : "scan the files inside archives, too")
        ->group(kPayloadGroup);
    AddValue(app, "--inside-depth", "N", "open no more than N payloads and archives within each other (default 4)",
             kPayloadGroup, [&settings](const std::string &text) {
                 settings.inside_depth =
                     static_cast<unsigned>(std::min<uint64_t>(RequireCount("--inside-depth", text), kGreatestDepth));
             });
    AddValue(
        app, "--inside-files", "N", "scan no more than N files inside a file (default 10000)", kPayloadGroup,
        [&settings](const std::string &text) { settings.inside_limits.files = RequireCount("--inside-files", text); });
    AddValue(
        app, "--inside-size", "SIZE", "unpack no more than this out of a file (default 4G)", kPayloadGroup,
        [&settings](const std::string &text) { settings.inside_limits.bytes = RequireSize("--inside-size", text); });
    AddValue(
        app, "--inside-ratio", "N", "unpack no more than N bytes for each byte of a file, after 128M (default 250)",
        kPayloadGroup,
        [&settings](const std::string &text) { settings.inside_limits.ratio = RequireCount("--inside-ratio", text); });
}

void AddPayloadOptions(CLI::App &app, ScanOptions &options) {
    AddValue(app, "--carve", "DIR", "write located payloads to new files in the folder DIR", kPayloadGroup,
             [&](const std::string &text) {
                 if (text.empty())
                     throw CLI::ValidationError("--carve", "the folder's name is empty; . is the current one");
                 options.carve_folder = base::PathOf(text);
             });
    app.add_flag("--carve-tail", options.carve.with_tail,
                 "carve up to the end of the file, with what follows the payload")
        ->group(kPayloadGroup);
    AddValue(app, "--carve-limit", "SIZE", "do not carve larger payloads (default 256M)", kPayloadGroup,
             [&](const std::string &text) { options.carve.limit = RequireSize("--carve-limit", text); });
}

} // namespace tavrik::scanning
