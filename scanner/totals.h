/* The counts over all files of a run. */
#ifndef TAVRIK_SCANNER_TOTALS_H
#define TAVRIK_SCANNER_TOTALS_H

#include <cstdint>
#include <string>

#include "scanner/report.h"

namespace tavrik::scanner {

/** The counts of what a run has done so far. */
struct Totals {
    uint64_t files = 0;      // that could be opened; not the skipped ones
    uint64_t bytes = 0;      // the sum of their sizes
    uint64_t bytes_read = 0; // of them
    uint64_t detections = 0;
    uint64_t payloads = 0;
    uint64_t files_with_payloads = 0;
    uint64_t near_misses = 0; // unknown builds included
    uint64_t skipped = 0;
    uint64_t errors = 0;
    uint64_t not_pe = 0;
    uint64_t not_opened = 0; // of the errors
    uint64_t inside = 0;     // files inside the others; detections, payloads, skipped ones and errors are counted above
    uint64_t inside_skipped = 0;

    /** Adds a file with all that is inside it. */
    void Add(const FileReport &report);

    /** All that have been dealt with: scanned, skipped and those that could not be opened. */
    uint64_t Done() const { return files + skipped + not_opened; }
};

/** The line at the end of a run, with its line feed. */
std::string SummaryLine(const Totals &totals, double seconds, bool is_interrupted,
                        std::string_view program = kScanProgram);

/** The files that a run will have to do with, as far as they have been counted. */
struct Expected {
    uint64_t files = 0;
    bool is_complete = false; // all are counted
};

/** A line of at most `columns` columns for a terminal: how many files are done and expected, what was found, the rates,
 * the time left where it can be told, and `file`, which is being scanned. */
std::string ProgressLine(const Totals &totals, const Expected &expected, double seconds,
                         const std::filesystem::path &file, std::size_t columns);

} // namespace tavrik::scanner

#endif
