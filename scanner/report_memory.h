/* How much memory a report takes, for bounds on what waits in memory. */
#ifndef TAVRIK_SCANNER_REPORT_MEMORY_H
#define TAVRIK_SCANNER_REPORT_MEMORY_H

#include <cstddef>

#include "scanner/scan.h"

namespace tavrik::scanner {

/** About as many bytes as a report takes without those inside it. */
std::size_t OwnMemory(const FileReport &report);

/** With them. */
std::size_t MemoryOf(const FileReport &report);

} // namespace tavrik::scanner

#endif
