/* From rules to records in memory, as a module would hand them out. */
#ifndef TAVRIK_RULES_RECORD_RECORD_BUILDER_H
#define TAVRIK_RULES_RECORD_RECORD_BUILDER_H

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "rules/model.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::rules::record {

/** The records of a rule set in working form: strings as they are, feature_flags computed. Owns everything that they
 * point to; the addresses last as long as the object or what it is moved to. */
class RecordSet {
public:
    /** Throws std::invalid_argument when a text does not fit its field. */
    explicit RecordSet(const RuleSet &set);

    std::span<HeuristicRule *const> rules() const { return table_; }

private:
    std::vector<std::unique_ptr<std::byte[]>> blocks_;
    std::vector<HeuristicRule> records_;
    std::vector<HeuristicRule *> table_;
};

} // namespace tavrik::rules::record

#endif
