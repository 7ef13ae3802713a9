/* The counts over all files of a run. */
#ifndef TAVRIK_SCANNER_TOTALS_H
#define TAVRIK_SCANNER_TOTALS_H

#include <cstdint>
#include <string>

#include "scanner/scan.h"

namespace tavrik::scanner {

/** The counts of what a run has done so far. */
struct Totals {
    uint64_t files = 0; // that were scanned or failed; not the skipped ones
    uint64_t bytes = 0; // the sum of their sizes
    uint64_t detections = 0;
    uint64_t findings = 0;
    uint64_t skipped = 0;
    uint64_t errors = 0;
    uint64_t not_pe = 0;

    void Add(const FileReport &report);
};

/** The line at the end of a run, with its line feed. */
std::string SummaryLine(const Totals &totals, double seconds, bool is_interrupted);

/** A line of at most `columns` columns for a terminal; `file` is the one that is being scanned. */
std::string ProgressLine(const Totals &totals, double seconds, const std::filesystem::path &file, std::size_t columns);

} // namespace tavrik::scanner

#endif
