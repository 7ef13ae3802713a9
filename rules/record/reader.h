/* Reads the records of a loaded module back into rules. */
#ifndef TAVRIK_RULES_RECORD_READER_H
#define TAVRIK_RULES_RECORD_READER_H

#include <cstdint>
#include <span>

#include "rules/model.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::rules::record {

/** Whether the module has prepared its records. In stored form the bytes of feature strings are 3 too high, and
 * feature_flags is what the author stored. */
enum class RecordForm : uint8_t { Stored, Working };

/** Copies a record. What it points to must be as the format says; nothing is checked. */
Rule ReadRule(const HeuristicRule &record, RecordForm form);

/** Copies a whole table. */
RuleSet ReadRules(std::span<HeuristicRule *const> table, RecordForm form);

} // namespace tavrik::rules::record

#endif
