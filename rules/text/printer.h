/* Rules as text in canonical form. */
#ifndef TAVRIK_RULES_TEXT_PRINTER_H
#define TAVRIK_RULES_TEXT_PRINTER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"

namespace tavrik::rules::text {

/** The canonical text of a rule, with a line feed after its closing brace. Throws std::invalid_argument for a value
 * that the language cannot write (not a valid string kind). */
std::string PrintRule(const Rule &rule);

/** The canonical text of a whole set: its rules in order, an empty line between two. */
std::string PrintRuleSet(const RuleSet &set);

/** What a line of a rule's text is about. */
enum class LineKind : uint8_t { Head, Item, Row, ItemEnd, RuleEnd };

/** A line of canonical text (of a long hex string, several), without its indentation and line's end. */
struct PrintedLine {
    LineKind kind = LineKind::Row;
    Item item = Item::Count; // of LineKind::Item, Row and ItemEnd
    std::size_t first = 0;   // of LineKind::Row: the list's first element that it covers
    std::size_t count = 0;   // of LineKind::Row: the number of these elements
    std::size_t indent = 0;  // levels
    std::string text;
};

/** The lines of a rule's canonical text, for callers that insert comments between them. */
std::vector<PrintedLine> RuleLines(const Rule &rule);

/** Blanks for a level of indentation. */
inline constexpr std::string_view kIndent = "    ";

/** A text in quotes, with escapes. */
std::string QuoteText(std::string_view text);

} // namespace tavrik::rules::text

#endif
