/* What the published profile says of the records themselves, beyond the values in them. */
#ifndef TAVRIK_DATABASE_PROFILE_RECORD_FACTS_H
#define TAVRIK_DATABASE_PROFILE_RECORD_FACTS_H

#include <span>
#include <vector>

#include "database/profile/profile.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::profile {

/** Checks the records of a loaded module in place: alignment, empty lists, shared names. */
std::vector<FactResult> CheckRecords(std::span<HeuristicRule *const> table);

} // namespace tavrik::profile

#endif
