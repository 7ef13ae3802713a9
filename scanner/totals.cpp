#include "scanner/totals.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "base/console.h"
#include "base/text.h"

namespace tavrik::scanner {

namespace {

constexpr double kMegabyte = 1e6;
constexpr double kLongestTime = 1e9;  // seconds that are shown
constexpr double kShortestRun = 1e-6; // seconds; avoids a division by 0

double Rate(double count, double seconds) {
    return count / std::max(seconds, kShortestRun);
}

// A duration for people, rounded up: "8 s", "2 min 5 s", "3 h 10 min".
std::string TimeText(double seconds) {
    const auto whole = static_cast<uint64_t>(std::ceil(std::min(seconds, kLongestTime)));
    if (whole < 60)
        return fmt::format("{} s", whole);
    if (whole < 3600)
        return fmt::format("{} min {} s", whole / 60, whole % 60);
    return fmt::format("{} h {} min", whole / 3600, whole / 60 % 60);
}

std::string PayloadCount(const Totals &totals) {
    const std::string count = base::CountText(totals.payloads, "payload");
    return totals.payloads == 0 ? count
                                : fmt::format("{} in {}", count, base::CountText(totals.files_with_payloads, "file"));
}

} // namespace

void Totals::Add(const FileReport &report) {
    if (report.status == ScanStatus::Skipped) {
        ++skipped;
        return;
    }
    errors += report.status == ScanStatus::Failed ? 1 : 0;
    if (!report.size) {
        ++not_opened;
        return;
    }
    ++files;
    bytes += *report.size;
    bytes_read += report.bytes_read;
    not_pe += report.status == ScanStatus::NotPe ? 1u : 0u;
    report.ForEach([this, &report](const FileReport &each) {
        detections += each.detections.size();
        payloads += each.payloads.size();
        files_with_payloads += each.payloads.empty() ? 0u : 1u;
        near_misses += each.near ? each.near->size() : 0;
        if (&each == &report)
            return;
        ++inside;
        inside_skipped += each.status == ScanStatus::Skipped ? 1u : 0u;
        errors += each.status == ScanStatus::Failed ? 1u : 0u;
    });
}

std::string SummaryLine(const Totals &totals, double seconds, bool is_interrupted, std::string_view program) {
    const double read = static_cast<double>(totals.bytes_read) / kMegabyte;
    return fmt::format("{}: {}{} of {:.1f} MB{}, {:.1f} MB read in {:.2f} s ({:.0f} files/s, {:.1f} MB/s): "
                       "{}, {}{}, {} skipped, "
                       "{}{}\n",
                       program, is_interrupted ? "interrupted: " : "", base::CountText(totals.files, "file"),
                       static_cast<double>(totals.bytes) / kMegabyte,
                       totals.inside == 0 ? "" : fmt::format(" with {} inside", base::CountText(totals.inside, "file")),
                       read, seconds, Rate(static_cast<double>(totals.files), seconds), Rate(read, seconds),
                       base::CountText(totals.detections, "detection"), PayloadCount(totals),
                       totals.near_misses == 0 ? "" : fmt::format(", {} near", totals.near_misses),
                       totals.skipped + totals.inside_skipped, base::CountText(totals.errors, "error"),
                       totals.not_pe == 0 ? "" : fmt::format(", {} not PE", totals.not_pe));
}

std::string ProgressLine(const Totals &totals, const Expected &expected, double seconds,
                         const std::filesystem::path &file, std::size_t columns) {
    const double rate = Rate(static_cast<double>(totals.Done()), seconds);
    std::string total;
    std::string left;
    if (expected.is_complete && expected.files > 0 && expected.files >= totals.Done()) {
        total = fmt::format(" of {} ({} %)", expected.files, 100 * totals.Done() / expected.files);
        if (totals.Done() > 0)
            left = fmt::format(", {} left", TimeText(static_cast<double>(expected.files - totals.Done()) / rate));
    } else if (expected.files > totals.Done()) {
        total = fmt::format(" of {} or more", expected.files);
    }
    const std::string files =
        total.empty() ? base::CountText(totals.Done(), "file") : fmt::format("{}{} files", totals.Done(), total);
    const std::string counts =
        fmt::format("{}, {} found, {:.0f} files/s, {:.1f} MB/s{}  ", files, totals.detections + totals.payloads, rate,
                    Rate(static_cast<double>(totals.bytes_read) / kMegabyte, seconds), left);
    if (counts.size() > columns)
        return "";
    return counts + base::ShortenLeft(base::PrintablePath(file), columns - counts.size());
}

} // namespace tavrik::scanner
