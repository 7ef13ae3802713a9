/* Rules as text in canonical form. */
#ifndef TAVRIK_RULES_TEXT_PRINTER_H
#define TAVRIK_RULES_TEXT_PRINTER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"
#include "rules/names.h"

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

/** Values that a text writes by their names, by the list and the element. */
using SpelledValues = std::map<std::pair<Item, std::size_t>, std::string>;

/** How a text writes what the record has no room for. */
struct Spelling {
    const SpelledValues *values = nullptr; // null: all by their numbers
    std::string_view expression;           // instead of the rule's own; empty: that one
    std::size_t first_string = 0;          // the place of the rule's first string among the letters
    bool is_part = false;                  // kAnyModule alone means any; rows #n may be those of another part
};

/** The lines of a rule's canonical text, for callers that insert comments between them. */
std::vector<PrintedLine> RuleLines(const Rule &rule, const Spelling &spelling = {});

/** The lines of a rule's block `meta`; none when it has no metadata. */
std::vector<PrintedLine> MetadataLines(const Rule &rule);

/** A number as the canonical text writes it. */
std::string NumberText(uint64_t value, Radix radix);

/** Blanks for a level of indentation. */
inline constexpr std::string_view kIndent = "    ";

/** A text in quotes, with escapes. */
std::string QuoteText(std::string_view text);

} // namespace tavrik::rules::text

#endif
