#include "rules/text/parser.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include "rules/expression.h"
#include "rules/lists.h"
#include "rules/names.h"
#include "rules/text/foreign_files.h"
#include "rules/text/rows.h"
#include "rules/text/suggestions.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

// The words that may follow the first part of a row, in their order.
std::span<const std::string_view> RowWords(Item item) {
    static constexpr std::string_view kStrings[] = {"wide", "nocase", "in", "from", "at", "drift", "anchor"};
    static constexpr std::string_view kNames[] = {"cased", "prefix", "option"};
    static constexpr std::string_view kResources[] = {"language", "crc32"};
    static constexpr std::string_view kResourceTypes[] = {"language", "absent", "mode"};
    switch (item) {
    case Item::Strings:
        return kStrings;
    case Item::ImportModules:
    case Item::ObjectNames:
    case Item::MemberNames:
        return kNames;
    case Item::Resources:
        return kResources;
    case Item::ResourceTypes:
        return kResourceTypes;
    default:
        return {};
    }
}

// The words of other languages for the operations of an expression, and what to write instead.
constexpr std::pair<std::string_view, std::string_view> kForeignOperations[] = {
    {"and", "write & for it: (A&B)"},
    {"or", "write | for it: (A|B)"},
    {"not", "no rule asks that a string is absent"},
    {"of", "name the strings: (A|B), ((A&B)&C)"},
    {"any", "name the strings: (A|B)"},
    {"all", "leave 'when' out: all strings must be there"},
    {"them", "name the strings: (A|B)"},
};

bool IsWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '$';
}

class Parser {
public:
    Parser(std::string_view text, ParsedFile &file) : file_(file), cursor_(text, file.diagnostics) {}

    void Parse() {
        while (!cursor_.AtEnd() && !cursor_.TooManyErrors()) {
            try {
                ParseRule();
            } catch (const Unreadable &) {
                cursor_.SkipToNextRule();
            }
        }
        if (file_.set.rules.empty() && cursor_.ErrorCount() == 0)
            cursor_.Warn(Code::W514, 0, 0, "this file has no rules");
        file_.comments = cursor_.comments();
        cursor_.MoveWarnings();
    }

private:
    void ParseRule() {
        if (!cursor_.AtWord("rule"))
            cursor_.Expected("'rule'", "a rule begins with: rule ID \"NAME\" for TARGET {");
        Rule &rule = file_.set.rules.emplace_back();
        RuleOrigin &origin = file_.origins.emplace_back();
        origin.begin = cursor_.offset();
        const std::size_t errors_before = cursor_.ErrorCount();
        ParseHead(rule);
        bool flags_written = false;
        while (!cursor_.AtSymbol("}")) {
            if (cursor_.AtEnd() || cursor_.AtWord("rule")) {
                ReportUnclosed(origin.begin, 4, "this rule has no closing brace");
                origin.end = cursor_.offset();
                return;
            }
            if (cursor_.TooManyErrors())
                throw Unreadable{};
            const std::size_t begin = cursor_.offset();
            try {
                ParseItem(rule, origin, flags_written);
            } catch (const Unreadable &) {
                cursor_.SkipRow(begin);
            }
        }
        origin.end = cursor_.offset();
        cursor_.Advance();
        if (!flags_written)
            rule.stored_flags = ComputeFeatureFlags(rule);
        CheckRule(rule, origin, errors_before);
        for (ImportFunction &function : rule.import_functions)
            if (function.index == kAnyModule)
                function.index = static_cast<uint16_t>(rule.import_modules.size());
    }

    void ParseHead(Rule &rule) {
        cursor_.Advance();
        rule.rule_id = Take<uint32_t>(cursor_, "the rule's number");
        rule.detection_name = ExpectName(cursor_, "a detection name", kMaxDetectionName);
        rule.attribute_a = cursor_.TakeWord("for") ? ParseTargets() : 1;
        cursor_.ExpectSymbol("{", "the rule's blocks are written in braces");
    }

    uint32_t ParseTargets() {
        uint32_t targets = 0;
        std::size_t count = 0;
        bool library = false;
        const std::size_t begin = cursor_.offset();
        do {
            library = library || cursor_.AtWord("library");
            targets |= LookUpNumber(cursor_, TargetNames(), "a target");
            ++count;
        } while (cursor_.TakeSymbol(","));
        if (library && count > 1)
            cursor_.Report(Code::E304, begin, cursor_.end_of_last() - begin,
                           "'library' cannot be combined with other targets", "it is the value without any bit");
        return targets;
    }

    // The item whose word is at the cursor.
    Item FindItem() {
        if (!cursor_.At(TokenKind::Identifier))
            cursor_.Expected("a block, such as header { ... }");
        const auto found = std::ranges::find(kItemWords, cursor_.token().text);
        if (found != kItemWords.end())
            return static_cast<Item>(found - kItemWords.begin());
        cursor_.Report(Code::E202, cursor_.offset(), cursor_.length(), "there is no block '" + cursor_.Text() + "'",
                       SuggestFrom(kItemWords, cursor_.token().text, [](std::string_view word) { return word; }));
        cursor_.Advance();
        if (cursor_.AtSymbol("{"))
            cursor_.SkipBraces();
        throw Unreadable{};
    }

    void ParseItem(Rule &rule, RuleOrigin &origin, bool &flags_written) {
        const Item item = FindItem();
        ItemOrigin &place = origin.of(item);
        if (place.begin != kNoOffset)
            cursor_.Report(Code::E401, cursor_.offset(), cursor_.length(),
                           "this rule has '" + cursor_.Text() + "' already", "put all of it in one place");
        place.begin = cursor_.offset();
        if (item == Item::When) {
            ParseWhen(rule);
            return;
        }
        cursor_.Advance();
        switch (item) {
        case Item::Traits:
            do
                rule.attribute_b |= LookUpNumber(cursor_, TraitNames(), "a trait");
            while (cursor_.TakeSymbol(","));
            return;
        case Item::StoredFlags:
            rule.stored_flags = Take<uint8_t>(cursor_, "the stored flags");
            flags_written = true;
            return;
        case Item::Reserved:
            rule.reserved = Take<uint64_t>(cursor_, "the reserved value");
            return;
        default:
            ParseBlock(rule, item, place);
        }
    }

    // The expression is kept as written.
    void ParseWhen(Rule &rule) {
        cursor_.AdvanceToExpression();
        expression_offset_ = cursor_.offset();
        if (cursor_.At(TokenKind::Text)) {
            expression_offset_ += 1;
            rule.expression = ExpectName(cursor_, "an expression");
            return;
        }
        if (!cursor_.At(TokenKind::Other) || cursor_.token().text.empty())
            cursor_.Expected("an expression such as ((A|B)&C)");
        rule.expression = cursor_.Text();
        cursor_.Advance();
    }

    void ParseBlock(Rule &rule, Item item, ItemOrigin &place) {
        cursor_.ExpectSymbol("{", "the rows of '" + std::string(ItemWord(item)) + "' are written in braces");
        while (!cursor_.AtSymbol("}")) {
            if (cursor_.AtEnd() || cursor_.AtWord("rule")) {
                ReportUnclosed(place.begin, ItemWord(item).size(), "this block has no closing brace");
                return;
            }
            if (cursor_.TooManyErrors())
                throw Unreadable{};
            const std::size_t begin = cursor_.offset();
            try {
                const std::size_t count = ParseRowOf(item, rule, begin);
                place.rows.insert(place.rows.end(), count, begin);
                CheckOrder(item);
            } catch (const Unreadable &) {
                cursor_.SkipRow(begin);
            }
            if (cursor_.AtSymbol(",")) {
                cursor_.Report(Code::E106, cursor_.offset(), 1, "rows are not separated by commas",
                               "each row has its line, or ends with ;");
                cursor_.Advance();
            }
            cursor_.TakeSymbol(";");
        }
        place.end = cursor_.offset();
        cursor_.Advance();
    }

    // After a row: its words that come later than they should.
    void CheckOrder(Item item) {
        const std::span<const std::string_view> words = RowWords(item);
        if (!cursor_.At(TokenKind::Identifier) || std::ranges::find(words, cursor_.token().text) == words.end())
            return;
        std::string order;
        for (const std::string_view word : words)
            order.append(order.empty() ? "the order is: " : ", ").append(word);
        cursor_.Report(Code::E105, cursor_.offset(), cursor_.length(),
                       "'" + cursor_.Text() + "' is out of order or written twice", order);
        throw Unreadable{};
    }

    // A text without an end may have taken the brace with it.
    void ReportUnclosed(std::size_t begin, std::size_t length, const char *message) {
        const auto is_open_text = [begin](const Diagnostic &each) {
            return each.code == Code::E003 && each.offset >= begin;
        };
        if (std::ranges::none_of(file_.diagnostics, is_open_text))
            cursor_.Report(Code::E103, begin, length, message);
    }

    // Parses one row of a list; returns the number of elements that it added.
    std::size_t ParseRowOf(Item item, Rule &rule, std::size_t begin) {
        if (item == Item::ExportModule && rule.export_module_names.size() >= kMaxExportModuleNames)
            cursor_.Report(Code::E305, begin, cursor_.length(), "a rule names one export module at most");
        std::size_t added = 0;
        const auto parse = [&](auto tag, auto &list) {
            if (tag.kItem != item)
                return;
            const std::size_t before = list.size();
            ParseRow(cursor_, list, begin);
            added = list.size() - before;
        };
        EachList(parse, rule);
        return added;
    }

    // Whether the expression has a word of another language, which is reported.
    bool ReportForeignOperation(std::string_view expression) {
        for (std::size_t begin = 0; begin < expression.size(); ++begin) {
            std::size_t end = begin;
            while (end < expression.size() && IsWordByte(expression[end]))
                ++end;
            const std::string_view word = expression.substr(begin, end - begin);
            const auto known = std::ranges::find(kForeignOperations, word, [](const auto &each) { return each.first; });
            if (known != std::end(kForeignOperations) || word.starts_with('$')) {
                cursor_.Report(
                    Code::E104, expression_offset_ + begin, word.size(),
                    "'" + std::string(word) + "' means nothing in an expression",
                    std::string(word.starts_with('$') ? "strings are labelled A, B, C, ... in order" : known->second));
                return true;
            }
            begin = std::max(begin, end);
        }
        return false;
    }

    void CheckRule(const Rule &rule, const RuleOrigin &origin, std::size_t errors_before) {
        if (ReportForeignOperation(rule.expression))
            return;
        if (const auto error = CheckExpression(rule.expression, rule.strings.size()))
            cursor_.Report(Code::E404, expression_offset_ + error->offset, 1, error->message,
                           "each operation has its own parentheses: ((A|B)&C)");
        const ItemOrigin &members = origin.of(Item::MemberNames);
        for (std::size_t i = 0; i < rule.member_names.size(); ++i) {
            if (rule.member_names[i].index >= rule.object_names.size())
                cursor_.Report(Code::E405, members.rows[i], 1,
                               "object_names has no row #" + std::to_string(rule.member_names[i].index));
        }
        const ItemOrigin &functions = origin.of(Item::ImportFunctions);
        for (std::size_t i = 0; i < rule.import_functions.size(); ++i) {
            const uint16_t module = rule.import_functions[i].index;
            if (module >= rule.import_modules.size() && module != kAnyModule)
                cursor_.Report(Code::E407, functions.rows[i], 1, "import_modules has no row #" + std::to_string(module),
                               "name the module in import_modules, whose first row is #0, or write any for functions "
                               "of any module");
        }
        // What a rule with errors asks is not known.
        if (ComputeFeatureFlags(rule) == 0 && cursor_.ErrorCount() == errors_before)
            cursor_.Report(Code::E406, origin.begin, 4, "this rule asks nothing",
                           "a rule without conditions never matches");
    }

    ParsedFile &file_;
    TokenCursor cursor_;
    std::size_t expression_offset_ = 0;
};

} // namespace

ParsedFile ParseRules(std::string_view text) {
    ParsedFile file;
    if (auto foreign = FindForeignFile(text)) {
        file.diagnostics.push_back(std::move(*foreign));
        return file;
    }
    Parser(text, file).Parse();
    return file;
}

} // namespace tavrik::rules::text
