#include "host/commands.h"

#include "host/report.h"

namespace tavrik::host {

void ReportError(const std::filesystem::path &file, const std::string &reason) {
    PrintError(ErrorLine(file, reason, WantsColour(When::Auto, stderr)));
}

} // namespace tavrik::host
