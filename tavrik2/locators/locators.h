/* The entries of the LocatorTable: their gates, and their searches of files that pass them. */
#ifndef TAVRIK2_LOCATORS_LOCATORS_H
#define TAVRIK2_LOCATORS_LOCATORS_H

#include "tavrik2/locators/gate/gate.h"
#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** Searches a file that passes the entry's gate. Returns 1 with `finding` written, or 0 with `finding` untouched. The
 * adapter in the table tests the gate first, so that no call of the stream comes before it, and adds the kind. */
using Locate = int (*)(const TargetFile &file, Finding *finding);

#define LOCATOR_ENTRY(number, flags, kind, description)                                                                \
    int Locate##number(const TargetFile &file, Finding *finding);                                                      \
    extern const GateView kGate##number;
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY

/** The gate of an entry, for showing; empty for the entry that declines every file and for numbers beyond the table. */
GateView GateOf(uint32_t entry);

} // namespace tavrik2

#endif
