#include "rules/text/rule_check.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "rules/expression.h"
#include "rules/text/count_of.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

// The words of other languages for the operations of an expression, and what to write instead.
constexpr std::pair<std::string_view, std::string_view> kForeignOperations[] = {
    {"and", "write & for it: (A&B)"},
    {"or", "write | for it: (A|B)"},
    {"not", "no rule asks that a string is absent"},
    {"of", "write 2 of (A, B, C), or 2 of them"},
    {"any", "write any of (A, B), or any of them"},
    {"all", "write all of (A, B), or all of them"},
    {"them", "write any of them, or 2 of them"},
};

bool IsWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
}

// Whether the expression has a word of another language, which is reported.
bool ReportForeignOperation(TokenCursor &cursor, std::string_view expression, std::size_t offset, bool is_as_written) {
    for (std::size_t begin = 0; begin < expression.size(); ++begin) {
        std::size_t end = begin;
        while (end < expression.size() && IsWordByte(expression[end]))
            ++end;
        const std::string_view word = expression.substr(begin, end - begin);
        const auto known = std::ranges::find(kForeignOperations, word, [](const auto &each) { return each.first; });
        if (known != std::end(kForeignOperations) || word.starts_with('$')) {
            cursor.Report(
                Code::E104, offset + (is_as_written ? begin : 0), word.size(),
                "'" + std::string(word) + "' means nothing in an expression",
                std::string(word.starts_with('$') ? "strings are labelled A, B, C, ... in order" : known->second));
            return true;
        }
        begin = std::max(begin, end);
    }
    return false;
}

// Puts "2 of (A, B, C)" into pairs; false with an error in it.
bool Expand(TokenCursor &cursor, WrittenPart &part, std::size_t offset) {
    auto expansion = ExpandCounts(part.rule.expression, part.rule.strings.size());
    if (!expansion)
        return true;
    if (const auto &error = expansion->error) {
        cursor.Report(Code::E408, offset + error->offset, error->length, error->message, error->help);
        return false;
    }
    part.origin.expression = std::exchange(part.rule.expression, std::move(expansion->text));
    return true;
}

} // namespace

void CheckRule(TokenCursor &cursor, WrittenPart &part, std::size_t expression_offset, std::size_t errors_before) {
    if (!Expand(cursor, part, expression_offset))
        return;
    const Rule &rule = part.rule;
    const RuleOrigin &origin = part.origin;
    const bool is_as_written = origin.expression.empty();
    if (ReportForeignOperation(cursor, rule.expression, expression_offset, is_as_written))
        return;
    if (const auto error = CheckExpression(rule.expression, rule.strings.size()))
        cursor.Report(Code::E404, expression_offset + (is_as_written ? error->offset : 0), 1, error->message,
                      "each operation has its own parentheses: ((A|B)&C)");
    const ItemOrigin &members = origin.of(Item::MemberNames);
    for (std::size_t i = 0; i < rule.member_names.size(); ++i) {
        if (rule.member_names[i].index >= rule.object_names.size())
            cursor.Report(Code::E405, members.rows[i], 1,
                          "object_names has no row #" + std::to_string(rule.member_names[i].index));
    }
    const ItemOrigin &functions = origin.of(Item::ImportFunctions);
    for (std::size_t i = 0; i < rule.import_functions.size(); ++i) {
        const uint16_t module = rule.import_functions[i].index;
        if (module >= rule.import_modules.size() && module != kAnyModule)
            cursor.Report(Code::E407, functions.rows[i], 1, "import_modules has no row #" + std::to_string(module),
                          "name the module in import_modules, whose first row is #0, or write any for functions "
                          "of any module");
    }
    // What a rule with errors asks is not known.
    if (ComputeFeatureFlags(rule) == 0 && cursor.ErrorCount() == errors_before)
        cursor.Report(Code::E406, origin.begin, 4, "this rule asks nothing", "a rule without conditions never matches");
}

} // namespace tavrik::rules::text
