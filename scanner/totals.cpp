#include "scanner/totals.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/console.h"
#include "base/text.h"

namespace tavrik::scanner {

namespace {

constexpr double kMegabyte = 1e6;
constexpr double kShortestRun = 1e-6; // seconds; avoids a division by 0

double Rate(double count, double seconds) {
    return count / std::max(seconds, kShortestRun);
}

} // namespace

void Totals::Add(const FileReport &report) {
    if (report.status == ScanStatus::Skipped) {
        ++skipped;
        return;
    }
    ++files;
    bytes += report.size.value_or(0);
    detections += report.detections.size();
    findings += report.findings.size();
    not_pe += report.status == ScanStatus::NotPe ? 1 : 0;
    errors += report.status == ScanStatus::Failed ? 1 : 0;
}

std::string SummaryLine(const Totals &totals, double seconds, bool is_interrupted) {
    const double megabytes = static_cast<double>(totals.bytes) / kMegabyte;
    return fmt::format(
        "tavrik-scan: {}{}, {:.1f} MB in {:.2f} s ({:.0f} files/s, {:.1f} MB/s): {}, {}, {} skipped, {}{}\n",
        is_interrupted ? "interrupted: " : "", base::CountText(totals.files, "file"), megabytes, seconds,
        Rate(static_cast<double>(totals.files), seconds), Rate(megabytes, seconds),
        base::CountText(totals.detections, "detection"), base::CountText(totals.findings, "finding"), totals.skipped,
        base::CountText(totals.errors, "error"), totals.not_pe == 0 ? "" : fmt::format(", {} not PE", totals.not_pe));
}

std::string ProgressLine(const Totals &totals, double seconds, const std::filesystem::path &file, std::size_t columns) {
    const std::string counts =
        fmt::format("{}, {} found, {:.0f} files/s  ", base::CountText(totals.files, "file"),
                    totals.detections + totals.findings, Rate(static_cast<double>(totals.files), seconds));
    if (counts.size() > columns)
        return "";
    return counts + base::ShortenLeft(base::PrintablePath(file), columns - counts.size());
}

} // namespace tavrik::scanner
