/* The specimens of the hand-written rules: the image that each was written for. */
#ifndef TAVRIK_DATABASE_GENERATOR_WRITTEN_H
#define TAVRIK_DATABASE_GENERATOR_WRITTEN_H

#include <cstdint>
#include <optional>
#include <vector>

#include "database/generator/plan.h"

namespace tavrik::generator {

/** The rule ids that have a specimen here, ascending. */
std::vector<uint32_t> WrittenIds();

/** The plan of the specimen of a hand-written rule; nothing for an id that has none. Only what shapes the image is set.
 */
std::optional<RulePlan> WrittenPlan(uint32_t rule_id);

} // namespace tavrik::generator

#endif
