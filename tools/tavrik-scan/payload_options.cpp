#include "base/text.h"
#include "tools/tavrik-scan/arguments.h"
#include "tools/tavrik-scan/scan_options.h"

namespace tavrik::scan_tool {

namespace {

constexpr char kGroup[] = "Payloads";

} // namespace

void AddPayloadOptions(CLI::App &app, ScanOptions &options) {
    AddValue(app, "--carve", "DIR", "write located payloads to new files in the folder DIR", kGroup,
             [&](const std::string &text) { options.carve_folder = base::PathOf(text); });
}

} // namespace tavrik::scan_tool
