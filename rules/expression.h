/* The boolean expression over a rule's strings. */
#ifndef TAVRIK_RULES_EXPRESSION_H
#define TAVRIK_RULES_EXPRESSION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrik::rules {

/** What is wrong with an expression, and where in it (a byte offset). */
struct ExpressionError {
    std::size_t offset = 0;
    std::string message;
};

/** The letters of an expression as a set of bits, A the lowest. */
using LetterSet = uint32_t;

/** Whether a character of an expression is the letter of a string. */
constexpr bool IsStringLetter(char c) {
    return c >= 'A' && c <= 'Z';
}

/** The letters that occur in a text. */
LetterSet LettersOf(std::string_view expression);

/** Checks that an expression is a letter or a pair in parentheses joined by & or |, blanks between tokens allowed, that
 * its letters run from A without a gap, and that each has one of `string_count` strings. The empty expression is
 * valid. */
std::optional<ExpressionError> CheckExpression(std::string_view expression, std::size_t string_count);

} // namespace tavrik::rules

#endif
