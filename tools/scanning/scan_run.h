/* A run over files and folders. */
#ifndef TAVRIK_TOOLS_SCANNING_SCAN_RUN_H
#define TAVRIK_TOOLS_SCANNING_SCAN_RUN_H

#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

/** How a run ended; if several apply, the greatest. */
enum ExitCode {
    kNothingFound = 0,
    kFound = 1,
    kErrorHappened = 2,
    kSignalled = 128 // plus the number of the signal that asked the program to end
};

/** Scans files and folders as the options say, and prints. Returns an ExitCode, or kSignalled plus a signal's number.
 * Throws as MakeScanner and base::Print. */
int RunScan(const ScanOptions &options);

} // namespace tavrik::scanning

#endif
