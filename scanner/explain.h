/* Explains why an entry of the locator table does or does not recognise a file. */
#ifndef TAVRIK_SCANNER_EXPLAIN_H
#define TAVRIK_SCANNER_EXPLAIN_H

#include <cstdint>
#include <string>

#include "scanner/host_records.h"
#include "scanner/module.h"

namespace tavrik::scanner {

/** A text for an analyst, and the result. */
struct Explanation {
    std::string text; // lines, each with its line feed
    bool found = false;
};

/** Shows the gate of `entry` (below LOCATOR_COUNT) next to the values of `records`, once for each candidate for the
 * first section if the gate depends on it, and what the module's locator then finds in `source`. */
Explanation Explain(const Module &module, uint32_t entry, base::ByteSource &source, const HostRecords &records);

} // namespace tavrik::scanner

#endif
