#include "rules/text/parser.h"

#include <algorithm>
#include <bitset>
#include <iterator>
#include <span>
#include <utility>

#include "rules/lists.h"
#include "rules/names.h"
#include "rules/text/foreign_files.h"
#include "rules/text/rows.h"
#include "rules/text/rule_check.h"
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

constexpr std::size_t kMostBranches = 16; // of one rule

// The elements that a rule's list has beyond the first ones.
Rule Beyond(const Rule &common, Rule whole) {
    EachList([](auto, const auto &first,
                auto &list) { list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(first.size())); },
             common, whole);
    whole.attribute_b &= ~common.attribute_b;
    if (!common.expression.empty())
        whole.expression.clear();
    whole.metadata.clear();
    whole.stored_flags = ComputeFeatureFlags(whole);
    return whole;
}

class Parser {
public:
    Parser(std::string_view text, Includes includes, ParsedFile &file)
        : file_(file), includes_(includes), cursor_(text, file.diagnostics) {}

    void Parse() {
        while (!cursor_.AtEnd() && !cursor_.TooManyErrors()) {
            try {
                if (cursor_.AtWord("include"))
                    ParseInclude();
                else
                    ParseRule();
            } catch (const Unreadable &) {
                cursor_.SkipToNextRule();
            }
        }
        if (file_.set.rules.empty() && file_.includes.empty() && cursor_.ErrorCount() == 0)
            cursor_.Warn(Code::W514, 0, 0, "this file has no rules");
        file_.comments = cursor_.comments();
        cursor_.MoveWarnings();
    }

private:
    // What has been read of a rule, or of a branch of one.
    struct State {
        std::bitset<kItemCount> seen;
        bool flags_written = false;
        bool is_branch = false;
        std::size_t expression_offset = 0;
    };

    void ParseInclude() {
        const std::size_t begin = cursor_.offset();
        if (!file_.origins.empty())
            cursor_.Report(Code::E105, begin, cursor_.length(), "'include' is out of order",
                           "files are included before the first rule");
        cursor_.Advance();
        const std::string name = ExpectName(cursor_, "a file's name");
        const std::size_t length = cursor_.end_of_last() - begin;
        if (includes_ == Includes::Refused)
            cursor_.Report(Code::E008, begin, length, "this text cannot include files",
                           "it is not read from a file: put the rules into the text");
        file_.includes.push_back({begin, length, name});
    }

    void ParseRule() {
        if (!cursor_.AtWord("rule"))
            cursor_.Expected("'rule'", "a rule begins with: rule ID \"NAME\" for TARGET {");
        WrittenPart whole;
        EitherRule either;
        whole.origin.begin = cursor_.offset();
        try {
            ParseWhole(whole, either);
        } catch (const Unreadable &) {
            Add(std::move(whole));
            throw;
        }
    }

    void ParseWhole(WrittenPart &whole, EitherRule &either) {
        const std::size_t errors_before = cursor_.ErrorCount();
        State state;
        ParseHead(whole.rule);
        if (!ParseBody(whole, state, "this rule has no closing brace")) {
            Add(std::move(whole));
            return;
        }
        std::vector<WrittenPart> records;
        std::vector<State> states;
        while (cursor_.AtWord("either") || (!records.empty() && cursor_.AtWord("or")))
            ParseBranch(whole, state, either, records, states);
        if (!records.empty() && !cursor_.AtSymbol("}"))
            ReportAfterEither();
        if (records.size() == 1)
            cursor_.Report(Code::E409, either.branches.front().origin.begin, 6, "this has one branch",
                           "write either { ... } or { ... }");
        const std::size_t end = cursor_.offset();
        whole.origin.end = end;
        cursor_.Advance();
        if (records.empty()) {
            Finish(whole, state, errors_before);
            Add(std::move(whole));
            return;
        }
        if (!state.flags_written)
            whole.rule.stored_flags = ComputeFeatureFlags(whole.rule);
        either.common = std::move(whole);
        either.first = file_.set.rules.size();
        for (std::size_t i = 0; i < records.size(); ++i) {
            records[i].origin.end = end;
            // What is wrong with all records is said of the first.
            if (i == 0 || cursor_.ErrorCount() == errors_before)
                Finish(records[i], states[i], errors_before);
            Add(std::move(records[i]));
        }
        file_.eithers.push_back(std::move(either));
    }

    // The items up to a closing brace or the first branch; false where the text ends before.
    bool ParseBody(WrittenPart &part, State &state, const char *unclosed) {
        const std::size_t begin = part.origin.begin;
        while (!cursor_.AtSymbol("}")) {
            if (cursor_.AtEnd() || cursor_.AtWord("rule")) {
                ReportUnclosed(begin, state.is_branch ? 6 : 4, unclosed);
                part.origin.end = cursor_.offset();
                return false;
            }
            if (cursor_.TooManyErrors())
                throw Unreadable{};
            if (cursor_.AtWord("either")) {
                if (!state.is_branch)
                    return true;
                cursor_.Report(Code::E409, cursor_.offset(), cursor_.length(), "a branch has no branches of its own",
                               "write each case as a branch of the rule");
                cursor_.Advance();
                if (cursor_.AtSymbol("{"))
                    cursor_.SkipBraces();
                continue;
            }
            const std::size_t row = cursor_.offset();
            try {
                ParseItem(part, state);
            } catch (const Unreadable &) {
                cursor_.SkipRow(row);
            }
        }
        return true;
    }

    // A branch: its record is what comes before the branches, with what is in it.
    void ParseBranch(const WrittenPart &common, const State &common_state, EitherRule &either,
                     std::vector<WrittenPart> &records, std::vector<State> &states) {
        const std::size_t begin = cursor_.offset();
        if (cursor_.AtWord("either") && !records.empty())
            cursor_.Report(Code::E409, begin, cursor_.length(), "this rule has branches already",
                           "write or for a further branch; a rule has one either");
        if (records.size() == kMostBranches)
            cursor_.Report(Code::E409, begin, cursor_.length(),
                           "a rule has at most " + std::to_string(kMostBranches) + " branches", "write several rules");
        if (records.size() >= kMostBranches)
            throw Unreadable{};
        cursor_.Advance();
        cursor_.ExpectSymbol("{", "a branch is written in braces");
        WrittenPart record = common;
        State state = common_state;
        state.is_branch = true;
        state.seen.reset();
        state.seen.set(static_cast<std::size_t>(Item::When),
                       common_state.seen.test(static_cast<std::size_t>(Item::When)));
        const std::bitset<kItemCount> before = state.seen;
        const std::size_t branch_begin = begin;
        record.origin.begin = branch_begin;
        const bool is_closed = ParseBody(record, state, "this branch has no closing brace");
        WrittenPart own = {Beyond(common.rule, record.rule), OwnOrigin(common, record.origin, state.seen & ~before)};
        own.origin.begin = branch_begin;
        own.origin.end = cursor_.offset();
        if (state.seen == before && is_closed)
            cursor_.Report(Code::E409, begin, 2, "this branch asks nothing",
                           "a rule whose branch adds nothing needs no other");
        either.branches.push_back(std::move(own));
        record.origin.begin = common.origin.begin;
        records.push_back(std::move(record));
        states.push_back(state);
        if (!is_closed)
            throw Unreadable{};
        cursor_.Advance();
    }

    // Where the items of a branch are, without what comes before the branches.
    static RuleOrigin OwnOrigin(const WrittenPart &common, const RuleOrigin &record, std::bitset<kItemCount> items) {
        RuleOrigin own;
        std::array<std::size_t, kItemCount> shared = {};
        EachList([&](auto tag, const auto &list) { shared[static_cast<std::size_t>(tag.kItem)] = list.size(); },
                 common.rule);
        for (std::size_t item = 0; item < kItemCount; ++item) {
            if (!items.test(item))
                continue;
            own.items[item] = record.items[item];
            std::vector<std::size_t> &rows = own.items[item].rows;
            rows.erase(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(std::min(shared[item], rows.size())));
        }
        for (const auto &[place, text] : record.values) {
            const std::size_t before = shared[static_cast<std::size_t>(place.first)];
            if (place.second >= before)
                own.values.emplace(std::pair(place.first, place.second - before), text);
        }
        return own;
    }

    void ReportAfterEither() {
        cursor_.Report(Code::E409, cursor_.offset(), cursor_.length(), "nothing follows the branches of a rule",
                       "write what all branches share before either");
        throw Unreadable{};
    }

    void Finish(WrittenPart &part, const State &state, std::size_t errors_before) {
        if (!state.flags_written)
            part.rule.stored_flags = ComputeFeatureFlags(part.rule);
        CheckRule(cursor_, part, state.expression_offset, errors_before);
        for (ImportFunction &function : part.rule.import_functions)
            if (function.index == kAnyModule)
                function.index = static_cast<uint16_t>(part.rule.import_modules.size());
    }

    void Add(WrittenPart part) {
        file_.set.rules.push_back(std::move(part.rule));
        file_.origins.push_back(std::move(part.origin));
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

    void ParseItem(WrittenPart &part, State &state) {
        Rule &rule = part.rule;
        const Item item = FindItem();
        ItemOrigin &place = part.origin.of(item);
        const auto number = static_cast<std::size_t>(item);
        if (state.seen.test(number))
            cursor_.Report(Code::E401, cursor_.offset(), cursor_.length(),
                           "this rule has '" + cursor_.Text() + "' already", "put all of it in one place");
        if (state.is_branch && (item == Item::Meta || item == Item::StoredFlags || item == Item::Reserved))
            cursor_.Report(Code::E409, cursor_.offset(), cursor_.length(),
                           "'" + cursor_.Text() + "' is of the rule as a whole", "write it before either");
        state.seen.set(number);
        place.begin = cursor_.offset();
        if (item == Item::When) {
            ParseWhen(rule, state);
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
            state.flags_written = true;
            return;
        case Item::Reserved:
            rule.reserved = Take<uint64_t>(cursor_, "the reserved value");
            return;
        default:
            ParseBlock(part, item, place);
        }
    }

    // The expression is kept as written.
    void ParseWhen(Rule &rule, State &state) {
        cursor_.AdvanceToExpression();
        state.expression_offset = cursor_.offset();
        if (cursor_.At(TokenKind::Text)) {
            state.expression_offset += 1;
            rule.expression = ExpectName(cursor_, "an expression");
            return;
        }
        if (!cursor_.At(TokenKind::Other) || cursor_.token().text.empty())
            cursor_.Expected("an expression such as ((A|B)&C)");
        rule.expression = cursor_.Text();
        cursor_.Advance();
    }

    void ParseBlock(WrittenPart &part, Item item, ItemOrigin &place) {
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
                const std::size_t first = place.rows.size();
                cursor_.TakeValues();
                const std::size_t count = ParseRowOf(item, part.rule, begin);
                place.rows.insert(place.rows.end(), count, begin);
                std::size_t element = first;
                for (std::string &spelled : cursor_.TakeValues()) {
                    if (!spelled.empty() && element < place.rows.size())
                        part.origin.values.emplace(std::pair(item, element), std::move(spelled));
                    ++element;
                }
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
        if (item == Item::Meta) {
            ParseRow(cursor_, rule.metadata, begin);
            return 1;
        }
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

    ParsedFile &file_;
    Includes includes_;
    TokenCursor cursor_;
};

} // namespace

ParsedFile ParseRules(std::string_view text, Includes includes) {
    ParsedFile file;
    if (auto foreign = FindForeignFile(text)) {
        file.diagnostics.push_back(std::move(*foreign));
        return file;
    }
    Parser(text, includes, file).Parse();
    return file;
}

} // namespace tavrik::rules::text
