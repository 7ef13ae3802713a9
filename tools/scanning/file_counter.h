/* How many files a run will have to do with, counted while it goes on. */
#ifndef TAVRIK_TOOLS_SCANNING_FILE_COUNTER_H
#define TAVRIK_TOOLS_SCANNING_FILE_COUNTER_H

#include <atomic>
#include <thread>

#include "scanner/totals.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

/** The count so far; any thread may read it. */
class ExpectedFiles {
public:
    scanner::Expected Get() const { return {files_, is_complete_}; }

private:
    friend class FileCounter;
    std::atomic<uint64_t> files_ = 0;
    std::atomic<bool> is_complete_ = false;
};

/** Walks over what the options name on a thread of its own and counts the files. A list on standard input or in a pipe
 * can be read only once, by the scan, so that its files are not counted and the count is never complete. */
class FileCounter {
public:
    /** `options` and `expected` must outlive the object. */
    FileCounter(const ScanOptions &options, ExpectedFiles &expected);

private:
    static void Count(const ScanOptions &options, ExpectedFiles &expected, const std::stop_token &stop);

    std::jthread thread_; // ends soon when the object does
};

} // namespace tavrik::scanning

#endif
