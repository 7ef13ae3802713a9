/* The results of a run as one HTML file for people, which needs nothing but itself. */
#ifndef TAVRIK_SCANNER_HTML_HTML_REPORT_H
#define TAVRIK_SCANNER_HTML_HTML_REPORT_H

#include <filesystem>
#include <string>
#include <string_view>

#include "base/atomic_file.h"
#include "scanner/html/file_details.h"
#include "scanner/scan.h"

namespace tavrik::scanner::html {

/** What the head of the report says. Texts of any bytes. */
struct RunFacts {
    std::string program;  // with its version
    std::string database; // that the module has, by its digest or size
    std::string command;  // line
    std::string time;     // at the start
};

/** The row of one file: what the scan found, to be unfolded to its details. Complete markup; every text in it that
 * comes from the file or its name is escaped. Any thread. */
std::string FileRow(const FileReport &report, const FileDetails &details);

/** Writes the report file by file, so that it never is in memory as a whole. One thread at a time. */
class HtmlReport {
public:
    /** Begins the report. `path` gets its content with Finish only. Throws base::Error. */
    HtmlReport(const std::filesystem::path &path, const RunFacts &facts);

    /** Adds the row of the next file. Throws base::Error. */
    void Add(std::string_view row);

    /** Ends the report; `summary` is a line about the run, with or without its line feed. Throws base::Error. */
    void Finish(std::string_view summary);

private:
    base::AtomicFile file_;
};

} // namespace tavrik::scanner::html

#endif
