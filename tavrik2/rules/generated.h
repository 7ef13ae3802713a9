/* What the generated source of the rule database is made of. */
#ifndef TAVRIK2_RULES_GENERATED_H
#define TAVRIK2_RULES_GENERATED_H

#include "tavrik2/rules/database.h"

namespace tavrik2 {

/** A record in storage: they are on 16-byte boundaries. */
struct alignas(16) RuleSlot {
    HeuristicRule rule;
};
static_assert(sizeof(RuleSlot) == 256);

} // namespace tavrik2

#endif
