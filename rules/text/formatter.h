/* Rule texts laid out in canonical form, comments kept. */
#ifndef TAVRIK_RULES_TEXT_FORMATTER_H
#define TAVRIK_RULES_TEXT_FORMATTER_H

#include <string>

#include "rules/text/parser.h"

namespace tavrik::rules::text {

/** The text of a file that parsed without an error, in canonical form with its comments: one on a line of its own stays
 * before what follows it, one after a line stays after it. No comment is lost: those of parts that canonical form
 * leaves out are placed before the rule's closing brace. Formatting the result again changes nothing. */
std::string FormatRules(const ParsedFile &file);

} // namespace tavrik::rules::text

#endif
