// The entry that keeps its place in the table and declines every file (entry 27).

#include "tavrik2/locators/locators.h"

namespace tavrik2 {

int Locator27(const TargetFile &, LocatorResult *) {
    return kDeclined;
}

} // namespace tavrik2
