#include "scanner/report.h"

namespace tavrik::scanner {

std::string ReportLines(const FileReport &report, ReportFormat format, bool in_colour) {
    switch (format) {
    case ReportFormat::JsonLines:
        return JsonLine(report) + '\n';
    default:
        return TextLines(report, in_colour);
    }
}

} // namespace tavrik::scanner
