#include "rules/text/digest.h"

#include <fmt/format.h>

#include "base/sha256.h"
#include "base/text.h"
#include "rules/text/printer.h"

namespace tavrik::rules::text {

std::string DigestOf(RuleSet set) {
    for (Rule &rule : set.rules) {
        rule.stored_flags = ComputeFeatureFlags(rule); // the text has only others
        rule.metadata.clear();
    }
    return base::Sha256Of(PrintRuleSet(set));
}

std::string DatabaseLine(const RuleSet &set) {
    return fmt::format("database: {}, SHA-256 {}\n", base::CountText(set.rules.size(), "rule"), DigestOf(set));
}

} // namespace tavrik::rules::text
