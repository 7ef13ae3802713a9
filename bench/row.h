/* Rows of the table that `./run bench` prints at its end: what was measured, next to what it is compared with. */
#ifndef TAVRIK_BENCH_ROW_H
#define TAVRIK_BENCH_ROW_H

#include <cstdio>
#include <string>

namespace tavrik::bench {

/** A figure next to its anchor's, measured in the same run, and the bound for the figure. */
struct Row {
    std::string what;
    double ours = 0;
    std::string unit;   // of all figures
    std::string anchor; // what the other figure is of; "" for none
    double theirs = 0;
    double target = 0;
    bool more_is_better = true;
};

/** Prints the row as one line that begins with "| ". */
inline void PrintRow(const Row &row) {
    const bool is_met = row.more_is_better ? row.ours >= row.target : row.ours <= row.target;
    char theirs[64] = "";
    if (!row.anchor.empty())
        std::snprintf(theirs, sizeof theirs, ": %.2f %s", row.theirs, row.unit.c_str());
    std::printf("| %s | %.2f %s | %s%s | %s %.2f %s | %s |\n", row.what.c_str(), row.ours, row.unit.c_str(),
                row.anchor.c_str(), theirs, row.more_is_better ? "at least" : "at most", row.target, row.unit.c_str(),
                is_met ? "met" : "missed");
    std::fflush(stdout);
}

} // namespace tavrik::bench

#endif
