/* A file's report as text, as JSON and as CSV. */
#ifndef TAVRIK_SCANNER_REPORT_H
#define TAVRIK_SCANNER_REPORT_H

#include <filesystem>
#include <string>

#include "scanner/scan.h"

namespace tavrik::scanner {

/** What a report is printed as. */
enum class ReportFormat { Text, JsonLines };

/** The report in that format, each line with its line feed. */
std::string ReportLines(const FileReport &report, ReportFormat format, bool in_colour);

/** A line for each detection, finding and carved payload, each with its line feed; "" when there is none. */
std::string TextLines(const FileReport &report, bool in_colour);

/** One JSON object without line feeds: file, size (null when unknown), sha256 (when it is known), status ("scanned",
 * "not-pe", "skipped" or "error"), reason (of "skipped") or error (of "error"), detections and findings. Bytes of the
 * name that are not valid UTF-8 are replaced by U+FFFD. */
std::string JsonLine(const FileReport &report);

/** The line for standard error about a file that could not be scanned as a whole, with its line feed. */
std::string ErrorLine(const std::filesystem::path &file, const std::string &reason, bool in_colour);

} // namespace tavrik::scanner

#endif
