/* What can be said of a rule when all of it has been read. */
#ifndef TAVRIK_RULES_TEXT_RULE_CHECK_H
#define TAVRIK_RULES_TEXT_RULE_CHECK_H

#include <cstddef>

#include "rules/text/parser.h"
#include "rules/text/token_cursor.h"

namespace tavrik::rules::text {

/** Puts the counts of a record's expression into pairs, and reports what is wrong with its parts together.
 * `expression_offset` is where its expression begins; `errors_before` is the number of errors before its text. */
void CheckRule(TokenCursor &cursor, WrittenPart &part, std::size_t expression_offset, std::size_t errors_before);

} // namespace tavrik::rules::text

#endif
