#include "database/profile/profile.h"

#include <iterator>

#include "database/profile/facts.h"

namespace tavrik::profile {

std::vector<FactResult> CheckProfile(const rules::RuleSet &rules) {
    std::vector<FactResult> results;
    for (const auto facts :
         {ListFacts, RuleFacts, StructureFacts, StringFacts, DirectoryFacts, MeasureAndObjectFacts}) {
        std::vector<FactResult> some = facts(rules);
        results.insert(results.end(), std::make_move_iterator(some.begin()), std::make_move_iterator(some.end()));
    }
    return results;
}

} // namespace tavrik::profile
