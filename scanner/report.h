/* A file's report as text, as JSON and as CSV. */
#ifndef TAVRIK_SCANNER_REPORT_H
#define TAVRIK_SCANNER_REPORT_H

#include <filesystem>
#include <string>
#include <string_view>

#include "scanner/scan.h"

namespace tavrik::scanner {

/** The program that lines on standard error begin with, unless another one scans. */
inline constexpr std::string_view kScanProgram = "tavrik-scan";

/** What a report is printed as. */
enum class ReportFormat { Text, JsonLines, Csv };

/** The report, and those of the files inside, in that format; each line with its line feed. */
std::string ReportLines(const FileReport &report, ReportFormat format, bool in_colour);

/** The same without those inside. */
std::string OwnLines(const FileReport &report, ReportFormat format, bool in_colour);

/** A line for each detection, payload and carved payload, each with its line feed; "" when there is none. */
std::string TextLines(const FileReport &report, bool in_colour);

/** One JSON object without line feeds: file, size (null when unknown), sha256 (when it is known), status ("scanned",
 * "not-pe", "skipped" or "error"), reason (of "skipped") or error (of "error"), detections, findings and payloads.
 * Bytes of the name that are not valid UTF-8 are replaced by U+FFFD. */
std::string JsonLine(const FileReport &report);

/** The names of the columns and the rows of a file for spreadsheets (RFC 4180, with line feeds): a row for each result,
 * or one for the file when there is none. File names are printable; a text that spreadsheets would take for a formula
 * begins with an apostrophe. */
std::string CsvHeader();
std::string CsvLines(const FileReport &report);

/** A status in a word: "scanned", "not-pe", "skipped" or "error". */
const char *StatusName(ScanStatus status);

/** The lines for standard error about what is no failure, each with its line feed: why the file was skipped
 * (`names_skipped`) and the notes. */
std::string NoteLines(const FileReport &report, bool names_skipped, std::string_view program = kScanProgram);

/** The line for standard error about a file that could not be scanned as a whole, with its line feed. */
std::string ErrorLine(const std::filesystem::path &file, const std::string &reason, bool in_colour,
                      std::string_view program = kScanProgram);

} // namespace tavrik::scanner

#endif
