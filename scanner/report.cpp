#include "scanner/report.h"

namespace tavrik::scanner {

const char *StatusName(ScanStatus status) {
    switch (status) {
    case ScanStatus::Scanned:
        return "scanned";
    case ScanStatus::NotPe:
        return "not-pe";
    case ScanStatus::Skipped:
        return "skipped";
    default:
        return "error";
    }
}

std::string OwnLines(const FileReport &report, ReportFormat format, bool in_colour) {
    switch (format) {
    case ReportFormat::JsonLines:
        return JsonLine(report) + '\n';
    case ReportFormat::Csv:
        return CsvLines(report);
    default:
        return TextLines(report, in_colour);
    }
}

std::string ReportLines(const FileReport &report, ReportFormat format, bool in_colour) {
    std::string lines;
    report.ForEach([&](const FileReport &each) { lines += OwnLines(each, format, in_colour); });
    return lines;
}

} // namespace tavrik::scanner
