/* What identifies a set of rules. */
#ifndef TAVRIK_RULES_TEXT_DIGEST_H
#define TAVRIK_RULES_TEXT_DIGEST_H

#include <string>

#include "rules/model.h"

namespace tavrik::rules::text {

/** The SHA-256 of the canonical text of all rules, in hexadecimal digits: equal for databases that say the same,
 * whatever their layout in memory. Without stored_flags, which the module overwrites when it prepares its records, so
 * that a module has the same digest before and after. Throws as PrintRuleSet. */
std::string DigestOf(RuleSet set);

/** The line about a database for --version, with its line feed. */
std::string DatabaseLine(const RuleSet &set);

} // namespace tavrik::rules::text

#endif
