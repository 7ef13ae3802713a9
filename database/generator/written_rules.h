/* The hand-written rules of the reference database, as their text was in the tree when this program was built. */
#ifndef TAVRIK_DATABASE_GENERATOR_WRITTEN_RULES_H
#define TAVRIK_DATABASE_GENERATOR_WRITTEN_RULES_H

#include <span>
#include <string_view>

#include "rules/model.h"

namespace tavrik::generator {

struct WrittenText {
    std::string_view file; // its name, without a folder
    std::string_view text;
};

/** The texts, in the order of their files' names. */
std::span<const WrittenText> WrittenTexts();

/** Their rules, in the order of the texts: those that the reference database is filled up from. Throws
 * std::logic_error when a text has errors. */
rules::RuleSet WrittenRules();

} // namespace tavrik::generator

#endif
