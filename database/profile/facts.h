/* The facts of the profile by subject; CheckProfile joins them. Each fact is computed from a rule set and given with
 * the published value. */
#ifndef TAVRIK_DATABASE_PROFILE_FACTS_H
#define TAVRIK_DATABASE_PROFILE_FACTS_H

#include <vector>

#include "database/profile/profile.h"
#include "rules/model.h"

namespace tavrik::profile {

/** The size of each list. */
std::vector<FactResult> ListFacts(const rules::RuleSet &set);

/** Ids, detection names, flags and attributes. */
std::vector<FactResult> RuleFacts(const rules::RuleSet &set);

/** Operators, and conditions on headers and sections. */
std::vector<FactResult> StructureFacts(const rules::RuleSet &set);

/** Strings and the expressions over them. */
std::vector<FactResult> StringFacts(const rules::RuleSet &set);

/** Imports, exports and resources. */
std::vector<FactResult> DirectoryFacts(const rules::RuleSet &set);

/** Measures, and objects of Visual Basic. */
std::vector<FactResult> MeasureAndObjectFacts(const rules::RuleSet &set);

} // namespace tavrik::profile

#endif
