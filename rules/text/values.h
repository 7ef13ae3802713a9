/* Numbers, texts and names of the rule language. */
#ifndef TAVRIK_RULES_TEXT_VALUES_H
#define TAVRIK_RULES_TEXT_VALUES_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>

#include "rules/names.h"
#include "rules/text/token_cursor.h"

namespace tavrik::rules::text {

inline constexpr uint16_t kAnyModule = 0xFFFF; // of a function row, until the rows of import_modules are counted

/** A value as written, with its place. */
template <typename Value>
struct Written {
    Value value{};
    std::size_t offset = 0;
    std::size_t length = 0;
};

/** A number of at most `largest`; `what` names it in errors. Throws Unreadable when the current token is not a number.
 */
Written<uint64_t> ExpectNumber(TokenCursor &cursor, uint64_t largest, std::string_view what);

/** A number that fits an integer type. Throws Unreadable. */
template <typename Integer>
Integer Take(TokenCursor &cursor, std::string_view what) {
    return static_cast<Integer>(ExpectNumber(cursor, std::numeric_limits<Integer>::max(), what).value);
}

/** An entropy in bits per byte. Throws Unreadable. */
double ExpectReal(TokenCursor &cursor);

/** The bytes that a text in quotes denotes. Throws Unreadable. */
Written<std::string> ExpectText(TokenCursor &cursor, std::string_view what);

/** A text that the record stores with a NUL after it: it holds none, and at most `longest` bytes. Throws
 * Unreadable. */
std::string ExpectName(TokenCursor &cursor, std::string_view what, std::size_t longest = std::string::npos);

/** A name of the table or a number. Reports names that are not in it. Throws Unreadable. */
uint32_t LookUpNumber(TokenCursor &cursor, std::span<const NamedNumber> names, std::string_view what);

/** A number in brackets, of at most `largest` (16 bits). Throws Unreadable. */
uint16_t ParsePosition(TokenCursor &cursor, uint64_t largest, std::string_view what);

/** The region of that name, with or without an index; null, with the error reported, when there is none. */
const Region *LookUpRegion(TokenCursor &cursor, const Token &name);

} // namespace tavrik::rules::text

#endif
