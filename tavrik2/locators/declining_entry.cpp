// The entry that keeps its place in the table and declines every file (entry 27).

#include "tavrik2/locators/locators.h"

namespace tavrik2 {

constinit const GateView kGate27 = {nullptr, 0};

int Locate27(const TargetFile &, Finding *) {
    return kDeclined;
}

} // namespace tavrik2
