/* From the text of rules to rules. */
#ifndef TAVRIK_RULES_TEXT_PARSER_H
#define TAVRIK_RULES_TEXT_PARSER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"
#include "rules/text/diagnostics.h"
#include "rules/text/lexer.h"
#include "rules/text/printer.h"

namespace tavrik::rules::text {

inline constexpr std::size_t kNoOffset = static_cast<std::size_t>(-1);

/** Where the parts of a rule are in its text: byte offsets. */
struct ItemOrigin {
    std::size_t begin = kNoOffset; // of the item's word; kNoOffset when the rule has none
    std::size_t end = kNoOffset;   // of a block's closing brace
    std::vector<std::size_t> rows; // of the row that each element of the list comes from
};

struct RuleOrigin {
    std::size_t begin = 0; // of the word "rule"; of a branch, of its word
    std::size_t end = 0;   // of the closing brace
    std::array<ItemOrigin, kItemCount> items;
    SpelledValues values;   // those written by their names
    std::string expression; // as written, where the record has another one

    const ItemOrigin &of(Item item) const { return items[static_cast<std::size_t>(item)]; }
    ItemOrigin &of(Item item) { return items[static_cast<std::size_t>(item)]; }
};

/** A part of a rule as its text has it. Functions of any module have kAnyModule, and rows #n count those of the whole
 * rule. */
struct WrittenPart {
    Rule rule;
    RuleOrigin origin;
};

/** A rule with either: one record for each branch, of what comes before the branches and what is in it. */
struct EitherRule {
    std::size_t first = 0; // the record of the first branch, in the set; those of the others follow it
    WrittenPart common;
    std::vector<WrittenPart> branches;
};

/** The line include "NAME". */
struct Include {
    std::size_t offset = 0; // of the word
    std::size_t length = 0; // up to the end of the name
    std::string name;
};

/** A parsed text. Rules with errors are not complete; with any error in `diagnostics` the set must not be used. */
struct ParsedFile {
    RuleSet set;
    std::vector<RuleOrigin> origins; // one for each rule
    std::vector<EitherRule> eithers; // in the order of the set
    std::vector<Include> includes;   // not read yet; rules/text/rule_files.h does that
    std::vector<Comment> comments;   // views into the text
    std::vector<Diagnostic> diagnostics;
};

/** Whether a text may include files: one that has no file of its own may not. */
enum class Includes : uint8_t { Refused, Allowed };

/** Parses a whole text and reports all its errors, in the order of their places. `text` must outlive the result's
 * comments. Never throws for the content of a text. */
ParsedFile ParseRules(std::string_view text, Includes includes = Includes::Refused);

} // namespace tavrik::rules::text

#endif
