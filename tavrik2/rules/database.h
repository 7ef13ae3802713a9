/* The module's rule database: constant-initialised data in stored form. */
#ifndef TAVRIK2_RULES_DATABASE_H
#define TAVRIK2_RULES_DATABASE_H

#include <cstdint>

#include "tavrik2/heuristic_rule.h"

namespace tavrik2 {

extern "C" {

/** The record pointers in stored order, and their number. */
extern HeuristicRule *const RuleTable[];
extern const uint32_t RuleTableCount;

} // extern "C"

/** A stored count as the preparation takes it. */
constexpr int32_t AsCount(uint32_t count) {
    return static_cast<int32_t>(count);
}

} // namespace tavrik2

#endif
