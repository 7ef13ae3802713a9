/* The locators, by their entry in the LocatorTable, and their gates.
 *
 * Each tests its gate first and reads the file only behind it. Each returns 1 with `result` written, or 0 with `result`
 * untouched. Entry 27 has no gate. */
#ifndef TAVRIK2_LOCATORS_LOCATORS_H
#define TAVRIK2_LOCATORS_LOCATORS_H

#include "tavrik2/locators/gate/gate.h"
#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

#define TAVRIK_LOCATOR(entry)                                                                                          \
    int Locator##entry(const TargetFile &file, LocatorResult *result);                                                 \
    extern const GateView kGate##entry

TAVRIK_LOCATOR(0);
TAVRIK_LOCATOR(1);
TAVRIK_LOCATOR(2);
TAVRIK_LOCATOR(3);
TAVRIK_LOCATOR(4);
TAVRIK_LOCATOR(5);
TAVRIK_LOCATOR(6);
TAVRIK_LOCATOR(7);
TAVRIK_LOCATOR(8);
TAVRIK_LOCATOR(9);
TAVRIK_LOCATOR(10);
TAVRIK_LOCATOR(11);
TAVRIK_LOCATOR(12);
TAVRIK_LOCATOR(13);
TAVRIK_LOCATOR(14);
TAVRIK_LOCATOR(15);
TAVRIK_LOCATOR(16);
TAVRIK_LOCATOR(17);
TAVRIK_LOCATOR(18);
TAVRIK_LOCATOR(19);
TAVRIK_LOCATOR(20);
TAVRIK_LOCATOR(21);
TAVRIK_LOCATOR(22);
TAVRIK_LOCATOR(23);
TAVRIK_LOCATOR(24);
TAVRIK_LOCATOR(25);
TAVRIK_LOCATOR(26);
int Locator27(const TargetFile &file, LocatorResult *result);
TAVRIK_LOCATOR(28);
TAVRIK_LOCATOR(29);
TAVRIK_LOCATOR(30);
TAVRIK_LOCATOR(31);
TAVRIK_LOCATOR(32);
TAVRIK_LOCATOR(33);
TAVRIK_LOCATOR(34);
TAVRIK_LOCATOR(35);
TAVRIK_LOCATOR(36);
TAVRIK_LOCATOR(37);
TAVRIK_LOCATOR(38);
TAVRIK_LOCATOR(39);
TAVRIK_LOCATOR(40);
TAVRIK_LOCATOR(41);
TAVRIK_LOCATOR(42);
TAVRIK_LOCATOR(43);
TAVRIK_LOCATOR(44);
TAVRIK_LOCATOR(45);
TAVRIK_LOCATOR(46);
TAVRIK_LOCATOR(47);
TAVRIK_LOCATOR(48);
TAVRIK_LOCATOR(49);

#undef TAVRIK_LOCATOR

/** The gate of an entry, for showing; empty for entry 27 and for numbers beyond the table. */
GateView GateOf(uint32_t entry);

} // namespace tavrik2

#endif
