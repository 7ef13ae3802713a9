/* The tables of tests/data, which were typed apart from the module's own. */
#ifndef TAVRIK_TESTS_SUPPORT_GOLDEN_H
#define TAVRIK_TESTS_SUPPORT_GOLDEN_H

#include <cstdint>
#include <vector>

#include "tavrik2/locators/gate/gate.h"
#include "tests/support/golden_lines.h"

namespace tavrik::tests {

/** The gate of an entry as gates.txt has it, its rows without the jumps of the evaluation. */
std::vector<tavrik2::GateRow> GoldenGate(uint32_t entry);

} // namespace tavrik::tests

#endif
