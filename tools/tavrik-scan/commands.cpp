#include "tools/tavrik-scan/commands.h"

#include "scanner/report.h"

namespace tavrik::scan_tool {

void ReportError(const std::filesystem::path &file, const std::string &reason) {
    base::PrintError(scanner::ErrorLine(file, reason, base::WantsColour(base::When::Auto, stderr)));
}

} // namespace tavrik::scan_tool
