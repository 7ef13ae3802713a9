/* What a run has done so far. */
#ifndef TAVRIK_SCANNER_TOTALS_H
#define TAVRIK_SCANNER_TOTALS_H

#include <cstdint>
#include <string>

#include "scanner/scan.h"

namespace tavrik::scanner {

/** Counts over all files of a run. */
struct Totals {
    uint64_t files = 0; // that were looked at, and those that could not be
    uint64_t bytes = 0; // of them, in whole
    uint64_t detections = 0;
    uint64_t findings = 0;
    uint64_t skipped = 0;
    uint64_t errors = 0;
    uint64_t not_pe = 0;

    void Add(const FileReport &report);
};

/** The line at the end of a run, with its line feed. */
std::string SummaryLine(const Totals &totals, double seconds, bool is_interrupted);

/** A line for a terminal of so many columns; `file` is the one that is worked on. */
std::string ProgressLine(const Totals &totals, double seconds, const std::filesystem::path &file, std::size_t columns);

} // namespace tavrik::scanner

#endif
