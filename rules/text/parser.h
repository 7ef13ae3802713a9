/* From the text of rules to rules. */
#ifndef TAVRIK_RULES_TEXT_PARSER_H
#define TAVRIK_RULES_TEXT_PARSER_H

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"
#include "rules/text/diagnostics.h"
#include "rules/text/lexer.h"

namespace tavrik::rules::text {

inline constexpr std::size_t kNoOffset = static_cast<std::size_t>(-1);

/** Where the parts of a rule are in its text: byte offsets. */
struct ItemOrigin {
    std::size_t begin = kNoOffset; // of the item's word; kNoOffset when the rule has none
    std::size_t end = kNoOffset;   // of a block's closing brace
    std::vector<std::size_t> rows; // of the row that each element of the list comes from
};

struct RuleOrigin {
    std::size_t begin = 0; // of the word "rule"
    std::size_t end = 0;   // of the closing brace
    std::array<ItemOrigin, kItemCount> items;

    const ItemOrigin &of(Item item) const { return items[static_cast<std::size_t>(item)]; }
    ItemOrigin &of(Item item) { return items[static_cast<std::size_t>(item)]; }
};

/** A parsed text. Rules with errors are not complete; with any error in `diagnostics` the set must not be used. */
struct ParsedFile {
    RuleSet set;
    std::vector<RuleOrigin> origins; // one for each rule
    std::vector<Comment> comments;   // views into the text
    std::vector<Diagnostic> diagnostics;
};

/** Parses a whole text and reports all its errors, in the order of their places. `text` must outlive the result's
 * comments. Never throws for the content of a text. */
ParsedFile ParseRules(std::string_view text);

} // namespace tavrik::rules::text

#endif
