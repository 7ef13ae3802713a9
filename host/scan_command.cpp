#include <algorithm>

#include "host/commands.h"
#include "host/report.h"
#include "host/scan.h"
#include "host/walk.h"

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

ExitCode CodeOf(const FileReport &report) {
    if (report.status == ScanStatus::Failed)
        return kErrorHappened;
    return report.findings.empty() ? kNothingFound : kFound;
}

} // namespace

ExitCode RunScan(const fs::path &module_path, const ScanOptions &options) {
    const Module module(module_path);
    ExitCode code = kNothingFound;
    const auto emit = [&](const FileReport &report) {
        Print(options.json ? JsonLine(report) + '\n' : TextLines(report));
        if (report.status == ScanStatus::Failed)
            ReportError(report.file, report.error);
        code = std::max(code, CodeOf(report));
    };
    const WalkVisitor visitor = {
        [&](const fs::path &file) { emit(ScanFile(module, file)); },
        [&](const fs::path &folder, const std::string &reason) {
            FileReport report;
            report.file = folder;
            report.error = reason;
            emit(report);
        },
    };
    for (const fs::path &path : options.paths)
        Walk(path, options.recursive, visitor);
    return code;
}

} // namespace tavrik::host
