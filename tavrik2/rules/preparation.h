/* Brings the rule database from its stored into its working form, once in the life of the process. */
#ifndef TAVRIK2_RULES_PREPARATION_H
#define TAVRIK2_RULES_PREPARATION_H

#include <cstdint>

#include "tavrik2/heuristic_rule.h"
#include "tavrik2/rules/name_tables.h"

namespace tavrik2 {

/** Brings `count` records into working form in place: takes 3 from each byte of their feature strings and computes
 * their feature_flags. Returns 0 when `table` is null, else 1; a count below 1 does nothing. */
int PrepareRules(HeuristicRule *const *table, int32_t count);

/** Brings `count` name entries into working form in place; a count below 1 does nothing. */
void DescrambleNameTable(NameEntry *table, int32_t count);

/** Prepares the module's rules and name tables at the first call, and leaves them alone at every later one. */
void PrepareDatabase();

} // namespace tavrik2

#endif
