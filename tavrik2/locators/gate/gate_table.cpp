#include "tavrik2/locators/locators.h"

namespace tavrik2 {

GateView GateOf(uint32_t entry) {
    static constexpr const GateView *kGates[LOCATOR_COUNT] = {
        &kGate0,  &kGate1,  &kGate2,  &kGate3,  &kGate4,  &kGate5,  &kGate6,  &kGate7,  &kGate8,  &kGate9,
        &kGate10, &kGate11, &kGate12, &kGate13, &kGate14, &kGate15, &kGate16, &kGate17, &kGate18, &kGate19,
        &kGate20, &kGate21, &kGate22, &kGate23, &kGate24, &kGate25, &kGate26, nullptr,  &kGate28, &kGate29,
        &kGate30, &kGate31, &kGate32, &kGate33, &kGate34, &kGate35, &kGate36, &kGate37, &kGate38, &kGate39,
        &kGate40, &kGate41, &kGate42, &kGate43, &kGate44, &kGate45, &kGate46, &kGate47, &kGate48, &kGate49};
    if (entry >= LOCATOR_COUNT || kGates[entry] == nullptr)
        return {nullptr, 0};
    return *kGates[entry];
}

} // namespace tavrik2
