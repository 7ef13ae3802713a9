/* The operators of the rule language in rows. */
#ifndef TAVRIK_RULES_TEXT_OPERATORS_H
#define TAVRIK_RULES_TEXT_OPERATORS_H

#include <optional>

#include "rules/names.h"
#include "rules/text/token_cursor.h"

namespace tavrik::rules::text {

/** Takes the operator at the cursor; nothing when there is none. */
inline std::optional<Operator> TakeOperator(TokenCursor &cursor) {
    if (!cursor.AtWord("has") && !cursor.At(TokenKind::Symbol))
        return std::nullopt;
    const auto number = NumberOf(Operators(), cursor.token().text);
    if (!number)
        return std::nullopt;
    cursor.Advance();
    return static_cast<Operator>(*number);
}

} // namespace tavrik::rules::text

#endif
