/* Expressions that ask for some of several strings: any of (A, B), 2 of (A, B, C), all of them. The record has only
 * pairs joined by & and |. */
#ifndef TAVRIK_RULES_TEXT_COUNT_OF_H
#define TAVRIK_RULES_TEXT_COUNT_OF_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tavrik::rules::text {

/** The longest expression that is made, in bytes: half of 26 strings would be more than a hundred million pairs. */
inline constexpr std::size_t kLongestExpansion = 4096;

/** What is wrong in an expression: a part of it, and what is said about that. */
struct CountError {
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string message;
    std::string help;
};

struct Expansion {
    std::string text; // the expression in pairs
    std::optional<CountError> error;
};

/** The expression with each "N of (...)" in pairs; nothing when it has none. "them" are the first `string_count`
 * strings. The rest is left as it is and may be wrong. */
std::optional<Expansion> ExpandCounts(std::string_view expression, std::size_t string_count);

} // namespace tavrik::rules::text

#endif
