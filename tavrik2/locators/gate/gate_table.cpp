#include "tavrik2/locators/locators.h"

namespace tavrik2 {

GateView GateOf(uint32_t entry) {
    static constexpr const GateView *kGates[] = {
#define LOCATOR_ENTRY(number, flags, kind, description) &kGate##number,
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY
    };
    return entry < LOCATOR_COUNT ? *kGates[entry] : GateView{nullptr, 0};
}

} // namespace tavrik2
