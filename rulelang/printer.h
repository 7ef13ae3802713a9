// Rules as text in canonical form.
#ifndef TAVRIK_RULELANG_PRINTER_H
#define TAVRIK_RULELANG_PRINTER_H

#include "rulelang/model.h"

#include <string>
#include <string_view>

namespace tavrik::rules {

/// The canonical text of a rule, with a line's end behind its closing brace. Throws std::invalid_argument for a value
/// that the language cannot write (a string kind that is none).
std::string PrintRule(const Rule &rule);

/// The canonical text of a whole set: its rules in order, an empty line between two.
std::string PrintRuleSet(const RuleSet &set);

/// A text in quotes, with escapes.
std::string QuoteText(std::string_view text);

} // namespace tavrik::rules

#endif
