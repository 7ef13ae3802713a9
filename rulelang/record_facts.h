// What the published profile says of the records themselves, beyond the values in them.
#ifndef TAVRIK_RULELANG_RECORD_FACTS_H
#define TAVRIK_RULELANG_RECORD_FACTS_H

#include "rulelang/profile.h"

#include "tavrik2/rules/heuristic_rule.h"

#include <span>
#include <vector>

namespace tavrik::rules {

/// Checks the records of a loaded module where they stand: alignment, empty lists, shared names.
std::vector<FactResult> CheckRecords(std::span<HeuristicRule *const> table);

} // namespace tavrik::rules

#endif
