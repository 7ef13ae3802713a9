#include "rules/text/parser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>

#include "rules/expression.h"
#include "rules/names.h"

namespace tavrik::rules::text {

namespace {

constexpr uint32_t kVersionResource = 16;
constexpr uint32_t kManifestResource = 24;

// Thrown behind a reported error, and caught where the text can be picked up again.
struct Unreadable {};

// A value as written, with its place.
template <typename Value>
struct Written {
    Value value{};
    std::size_t offset = 0;
    std::size_t length = 0;
};

// The number of single-byte edits between two words, for suggestions.
std::size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

// The closest of some names as a suggestion; when none is close all of them, or nothing when they are many.
template <typename Names, typename NameOfElement>
std::string Suggest(std::string_view wrong, const Names &names, NameOfElement name_of) {
    std::string_view best;
    std::size_t best_distance = std::max<std::size_t>(wrong.size() / 3, 2) + 1;
    for (const auto &element : names) {
        const std::string_view name = name_of(element);
        // A long word has no close name, and the distance of two long words is dear.
        if (name.size() > 64 || wrong.size() > 64)
            continue;
        const std::size_t distance = EditDistance(wrong, name);
        if (distance < best_distance) {
            best = name;
            best_distance = distance;
        }
    }
    if (!best.empty())
        return "did you mean '" + std::string(best) + "'?";
    constexpr std::size_t kMany = 24;
    std::string all;
    if (std::size(names) <= kMany)
        for (const auto &element : names)
            all.append(all.empty() ? "one of: " : ", ").append(name_of(element));
    return all;
}

const Field *LookUp(std::span<const Field> fields, std::string_view name) {
    // One index for each of the four tables.
    using Index = std::unordered_map<std::string_view, const Field *>;
    static const std::unordered_map<const Field *, Index> indexes = [] {
        std::unordered_map<const Field *, Index> all;
        for (const auto table : {HeaderFields(), SectionFields(), ImportTableFields(), ObjectFields()}) {
            for (const Field &field : table)
                all[table.data()].emplace(field.name, &field);
        }
        return all;
    }();
    const Index &index = indexes.at(fields.data());
    const auto found = index.find(name);
    return found == index.end() ? nullptr : found->second;
}

class Parser {
public:
    Parser(std::string_view text, ParsedFile &file) : text_(text), file_(file), lexer_(text, file.diagnostics) {
        Advance();
    }

    void Parse() {
        if (const std::size_t nul = text_.find('\0'); nul != std::string_view::npos)
            Report("E005", nul, 1, "a rule file holds no NUL byte", "is this a compiled file?");
        while (token_.kind != TokenKind::End && !TooManyErrors()) {
            try {
                ParseRule();
            } catch (const Unreadable &) {
                SkipToNextRule();
            }
        }
        file_.comments = lexer_.comments();
        file_.diagnostics.insert(file_.diagnostics.end(), warnings_.begin(), warnings_.end());
        std::ranges::stable_sort(file_.diagnostics, {}, &Diagnostic::offset);
    }

private:
    // ---- Words ----------------------------------------------------------------------------------------------------

    void Advance() {
        end_of_last_ = token_.offset + token_.text.size();
        token_ = lexer_.Next();
    }

    bool AtSymbol(std::string_view symbol) const { return token_.kind == TokenKind::Symbol && token_.text == symbol; }
    bool AtWord(std::string_view word) const { return token_.kind == TokenKind::Identifier && token_.text == word; }

    bool TakeSymbol(std::string_view symbol) {
        if (!AtSymbol(symbol))
            return false;
        Advance();
        return true;
    }

    bool TakeWord(std::string_view word) {
        if (!AtWord(word))
            return false;
        Advance();
        return true;
    }

    void Report(std::string code, std::size_t offset, std::size_t length, std::string message, std::string help = "") {
        if (!TooManyErrors())
            file_.diagnostics.push_back(
                {Severity::Error, std::move(code), offset, length, std::move(message), std::move(help)});
    }

    void Warn(std::string code, std::size_t offset, std::size_t length, std::string message, std::string help = "") {
        if (warnings_.size() < kMaxErrors)
            warnings_.push_back(
                {Severity::Warning, std::move(code), offset, length, std::move(message), std::move(help)});
    }

    bool TooManyErrors() const { return file_.diagnostics.size() >= kMaxErrors; }

    // Reports that something else was expected where the text stands.
    [[noreturn]] void Expected(std::string_view what, std::string help = "") {
        // What the lexer could not read has been reported already.
        if (token_.kind == TokenKind::End)
            Report("E101", token_.offset, 0, std::string(what) + " was expected, but the text ends here",
                   std::move(help));
        else if (token_.kind != TokenKind::kOther)
            Report("E101", token_.offset, token_.text.size(), std::string(what) + " was expected", std::move(help));
        throw Unreadable{};
    }

    void ExpectSymbol(std::string_view symbol, std::string help = "") {
        if (!TakeSymbol(symbol))
            Expected("'" + std::string(symbol) + "'", std::move(help));
    }

    Written<uint64_t> ExpectNumber(uint64_t largest, std::string_view what) {
        if (token_.kind != TokenKind::Number)
            Expected(what, token_.kind == TokenKind::Real ? "fractions and signs are for entropies alone" : "");
        Written<uint64_t> number{0, token_.offset, token_.text.size()};
        std::string_view digits = token_.text;
        const bool hex = digits.starts_with("0x");
        if (hex)
            digits.remove_prefix(2);
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), number.value, hex ? 16 : 10);
        const bool all_read = !digits.empty() && end == digits.data() + digits.size();
        if (!all_read && error != std::errc::result_out_of_range)
            Report("E102", number.offset, number.length, "this is not a number",
                   "numbers are decimal (500) or hexadecimal (0x1F4)");
        else if (error == std::errc::result_out_of_range || number.value > largest)
            Report("E301", number.offset, number.length, std::string(what) + " is at most " + std::to_string(largest));
        Advance();
        number.value = std::min(number.value, largest);
        return number;
    }

    template <typename Integer>
    Integer Take(std::string_view what, uint64_t largest = std::numeric_limits<Integer>::max()) {
        return static_cast<Integer>(ExpectNumber(largest, what).value);
    }

    double ExpectReal() {
        if (token_.kind != TokenKind::Number && token_.kind != TokenKind::Real)
            Expected("an entropy");
        double value = 0;
        const char *const last = token_.text.data() + token_.text.size();
        const auto [end, error] = std::from_chars(token_.text.data(), last, value, std::chars_format::fixed);
        if (end != last || error != std::errc{})
            Report("E102", token_.offset, token_.text.size(), "this is not a number", "an entropy is written as 7.25");
        else if (value < 0 || value > 8)
            Warn("W501", token_.offset, token_.text.size(), "no entropy is outside 0 to 8");
        Advance();
        return value;
    }

    // The bytes that a text in quotes stands for.
    Written<std::string> ExpectText(std::string_view what) {
        if (token_.kind != TokenKind::Text)
            Expected(what, "text stands in double quotes");
        Written<std::string> text{"", token_.offset, token_.text.size()};
        const std::string_view inside = token_.text.substr(1, token_.text.size() - 2);
        for (std::size_t i = 0; i < inside.size(); ++i) {
            if (inside[i] != '\\') {
                text.value += inside[i];
                continue;
            }
            const std::size_t begin = i++;
            uint8_t byte = 0;
            if (i < inside.size() && inside[i] == 'x' && i + 2 < inside.size() &&
                std::from_chars(&inside[i] + 1, &inside[i] + 3, byte, 16).ptr == &inside[i] + 3) {
                text.value += static_cast<char>(byte);
                i += 2;
                continue;
            }
            constexpr std::string_view kEscapes = "\"\\nrt";
            constexpr std::string_view kMeanings = "\"\\\n\r\t";
            const std::size_t escape = i < inside.size() ? kEscapes.find(inside[i]) : std::string_view::npos;
            if (escape == std::string_view::npos)
                Report("E004", text.offset + 1 + begin, 2, "there is no such escape",
                       "the escapes are \\\" \\\\ \\n \\r \\t and \\xHH");
            else
                text.value += kMeanings[escape];
        }
        Advance();
        return text;
    }

    // A text that the record keeps with a NUL behind it.
    std::string ExpectName(std::string_view what, std::size_t longest = std::string::npos) {
        const Written<std::string> text = ExpectText(what);
        if (text.value.find('\0') != std::string::npos)
            Report("E302", text.offset, text.length, std::string(what) + " ends at a NUL and cannot hold one");
        if (text.value.size() > longest)
            Report("E303", text.offset, text.length,
                   std::string(what) + " has at most " + std::to_string(longest) + " characters; this has " +
                       std::to_string(text.value.size()));
        return text.value;
    }

    uint32_t LookUpNumber(std::span<const NamedNumber> names, std::string_view what) {
        if (token_.kind != TokenKind::Identifier)
            return Take<uint32_t>(what);
        const auto number = NumberOf(names, token_.text);
        if (!number)
            Report("E201", token_.offset, token_.text.size(),
                   "'" + std::string(token_.text) + "' is not " + std::string(what),
                   Suggest(token_.text, names, [](const NamedNumber &name) { return name.name; }));
        Advance();
        return number.value_or(0);
    }

    // ---- Rules ----------------------------------------------------------------------------------------------------

    void ParseRule() {
        if (!AtWord("rule"))
            Expected("'rule'", "a rule begins with: rule ID \"NAME\" for TARGET {");
        Rule &rule = file_.set.rules.emplace_back();
        RuleOrigin &origin = file_.origins.emplace_back();
        origin.begin = token_.offset;
        const std::size_t errors_before = file_.diagnostics.size();
        Advance();
        rule.rule_id = Take<uint32_t>("the rule's number");
        rule.detection_name = ExpectName("a detection name", kMaxDetectionName);
        rule.attribute_a = TakeWord("for") ? ParseTargets() : 1;
        ExpectSymbol("{", "the rule's blocks stand in braces");
        bool flags_written = false;
        while (!AtSymbol("}")) {
            if (token_.kind == TokenKind::End || AtWord("rule")) {
                Report("E103", origin.begin, 4, "this rule has no closing brace");
                origin.end = token_.offset;
                return;
            }
            if (TooManyErrors())
                throw Unreadable{};
            const std::size_t begin = token_.offset;
            try {
                ParseItem(rule, origin, flags_written);
            } catch (const Unreadable &) {
                SkipRow(begin);
            }
        }
        origin.end = token_.offset;
        Advance();
        if (!flags_written)
            rule.stored_flags = ComputeFeatureFlags(rule);
        CheckRule(rule, origin, errors_before);
    }

    uint32_t ParseTargets() {
        uint32_t targets = 0;
        std::size_t count = 0;
        bool library = false;
        const std::size_t begin = token_.offset;
        do {
            library = library || AtWord("library");
            targets |= LookUpNumber(TargetNames(), "a target");
            ++count;
        } while (TakeSymbol(","));
        if (library && count > 1)
            Report("E304", begin, end_of_last_ - begin, "'library' stands alone", "it is the value without any bit");
        return targets;
    }

    void ParseItem(Rule &rule, RuleOrigin &origin, bool &flags_written) {
        if (token_.kind != TokenKind::Identifier)
            Expected("a block, such as header { ... }");
        const auto found = std::ranges::find(kItemWords, token_.text);
        if (found == kItemWords.end()) {
            Report("E202", token_.offset, token_.text.size(), "there is no block '" + std::string(token_.text) + "'",
                   Suggest(token_.text, kItemWords, [](std::string_view word) { return word; }));
            Advance();
            if (AtSymbol("{"))
                SkipBraces();
            throw Unreadable{};
        }
        const auto item = static_cast<Item>(found - kItemWords.begin());
        ItemOrigin &place = origin.of(item);
        if (place.begin != kNoOffset)
            Report("E401", token_.offset, token_.text.size(), "this rule has '" + std::string(*found) + "' already",
                   "put all of it in one place");
        place.begin = token_.offset;
        if (item == Item::When) {
            ParseWhen(rule);
            return;
        }
        Advance();
        switch (item) {
        case Item::Traits:
            do
                rule.attribute_b |= LookUpNumber(TraitNames(), "a trait");
            while (TakeSymbol(","));
            return;
        case Item::StoredFlags:
            rule.stored_flags = Take<uint8_t>("the stored flags");
            flags_written = true;
            return;
        case Item::Reserved:
            rule.reserved = Take<uint64_t>("the reserved value");
            return;
        default:
            ParseBlock(rule, item, place);
        }
    }

    // The expression is kept as written.
    void ParseWhen(Rule &rule) {
        token_ = lexer_.NextExpression();
        expression_offset_ = token_.offset;
        if (token_.kind == TokenKind::Text) {
            expression_offset_ += 1;
            rule.expression = ExpectName("an expression");
            return;
        }
        if (token_.kind != TokenKind::kOther || token_.text.empty())
            Expected("an expression such as ((A|B)&C)");
        rule.expression = token_.text;
        Advance();
    }

    void ParseBlock(Rule &rule, Item item, ItemOrigin &place) {
        ExpectSymbol("{", "the rows of '" + std::string(ItemWord(item)) + "' stand in braces");
        while (!AtSymbol("}")) {
            if (token_.kind == TokenKind::End || AtWord("rule")) {
                Report("E103", place.begin, ItemWord(item).size(), "this block has no closing brace");
                return;
            }
            if (TooManyErrors())
                throw Unreadable{};
            const std::size_t begin = token_.offset;
            try {
                const std::size_t count = ParseRow(rule, item, begin);
                place.rows.insert(place.rows.end(), count, begin);
            } catch (const Unreadable &) {
                SkipRow(begin);
            }
            TakeSymbol(";");
        }
        place.end = token_.offset;
        Advance();
    }

    // Parses one row; returns the number of elements it added.
    std::size_t ParseRow(Rule &rule, Item item, std::size_t begin) {
        switch (item) {
        case Item::Header:
            return ParseHeaderRow(rule.header_conditions, begin);
        case Item::Sections:
            return ParseSectionRow(rule.section_conditions, begin);
        case Item::SectionNames:
            return ParseSectionNameRow(rule.section_names, begin);
        case Item::Strings:
            return ParseStringRow(rule.strings);
        case Item::ImportTable:
            return ParseNumberedRow(rule.indexed_conditions, ImportTableFields(), begin);
        case Item::ImportModules:
            return ParseImportModule(rule.import_modules);
        case Item::ImportFunctions:
            return ParseImportFunction(rule.import_functions);
        case Item::ExportModule:
            if (!rule.export_module_names.empty())
                Report("E305", begin, token_.text.size(), "a rule names one export module at most");
            return ParseExportName(rule.export_module_names);
        case Item::ExportFunctions:
            return ParseExportName(rule.export_functions);
        case Item::Resources:
            return ParseResource(rule.resource_entries);
        case Item::ResourceTypes:
            return ParseResourceType(rule.resource_type_entries);
        case Item::ResourceStrings:
            return ParseResourceString(rule.resource_strings);
        case Item::Measures:
            return ParseMeasure(rule.measure_conditions, begin);
        case Item::ObjectFields:
            return ParseNumberedRow(rule.secondary_conditions, ObjectFields(), begin);
        case Item::ObjectNames:
            return ParseObjectName(rule.object_names);
        default:
            return ParseMemberName(rule.member_names);
        }
    }

    // ---- Conditions -----------------------------------------------------------------------------------------------

    std::optional<Operator> TakeOperator() {
        const bool is_word = AtWord("has");
        if (!is_word && token_.kind != TokenKind::Symbol)
            return std::nullopt;
        const auto number = NumberOf(Operators(), token_.text);
        if (!number)
            return std::nullopt;
        Advance();
        return static_cast<Operator>(*number);
    }

    // The right side of a row: `element` with its operator and value, once for each element that the row stands for.
    // `take` reads a value and sets it in an element; `ranges` tells whether `in` is known.
    template <typename Element, typename TakeValue>
    std::size_t ParseTest(std::vector<Element> &list, Element element, bool ranges, TakeValue take) {
        if (ranges && TakeWord("in")) {
            Element lower = element;
            lower.op = Operator::AtLeast;
            take(lower);
            ExpectSymbol("..", "a range is written as 3..7");
            element.op = Operator::AtMost;
            take(element);
            list.push_back(lower);
            list.push_back(element);
            return 2;
        }
        const auto op = TakeOperator();
        if (!op)
            Expected(ranges ? "an operator (== != < > <= >= has in)" : "an operator (== or !=)");
        element.op = *op;
        std::size_t count = 0;
        do {
            take(element);
            list.push_back(element);
            ++count;
        } while (*op == Operator::Equal && TakeSymbol("|"));
        return count;
    }

    // Two rows of == on one value would be dumped as one.
    template <typename Element, typename Same>
    void CheckAlternatives(const std::vector<Element> &list, std::size_t added, std::size_t begin, Same same) {
        // What a row with an error asks about is not known.
        const bool row_is_wrong = !file_.diagnostics.empty() && file_.diagnostics.back().offset >= begin;
        if (row_is_wrong || added == 0 || added == list.size())
            return;
        const Element &last = list[list.size() - added - 1];
        const Element &first = list[list.size() - added];
        if (last.op == Operator::Equal && first.op == Operator::Equal && same(last, first))
            Report("E402", begin, end_of_last_ - begin, "the row before asks about the same value",
                   "write alternatives in one row: == a | b");
    }

    uint16_t ParseField(std::span<const Field> fields, uint32_t largest) {
        if (token_.kind != TokenKind::Identifier)
            Expected("the name of a field");
        const std::size_t begin = token_.offset;
        std::string name(token_.text);
        std::optional<uint32_t> number;
        Advance();
        while (true) {
            if (TakeSymbol(".")) {
                if (token_.kind != TokenKind::Identifier)
                    Expected("the name of a field");
                name.append(".").append(token_.text);
                number.reset();
                Advance();
            } else if (TakeSymbol("[")) {
                const auto index = static_cast<uint32_t>(ExpectNumber(largest, "a field's number").value);
                number = name == "field" ? std::optional(index) : std::nullopt;
                name += "[" + std::to_string(index) + "]";
                ExpectSymbol("]");
            } else {
                break;
            }
        }
        if (number)
            return static_cast<uint16_t>(*number);
        const Field *field = LookUp(fields, name);
        if (field == nullptr) {
            Report("E203", begin, end_of_last_ - begin, "there is no field '" + name + "'",
                   Suggest(name, fields, [](const Field &each) { return each.name; }));
            return 0;
        }
        return field->number;
    }

    // Values wider than their field are never met.
    void CheckWidth(std::span<const Field> fields, uint32_t number, const Written<uint64_t> &value) {
        const Field *field = FindField(fields, number);
        if (field != nullptr && field->width < 4 && value.value >> (8 * field->width) != 0)
            Warn("W502", value.offset, value.length,
                 std::string(field->name) + " has " + std::to_string(8 * field->width) + " bits and never this value");
    }

    template <typename Element>
    auto TakeFieldValue(std::span<const Field> fields) {
        return [this, fields](Element &element) {
            const Written<uint64_t> value = ExpectNumber(UINT32_MAX, "a value");
            CheckWidth(fields, element.field, value);
            element.value = static_cast<uint32_t>(value.value);
        };
    }

    std::size_t ParseHeaderRow(std::vector<HeaderCondition> &list, std::size_t begin) {
        HeaderCondition element;
        element.field = ParseField(HeaderFields(), UINT16_MAX);
        const std::size_t added = ParseTest(list, element, true, TakeFieldValue<HeaderCondition>(HeaderFields()));
        CheckAlternatives(list, added, begin, [](const auto &a, const auto &b) { return a.field == b.field; });
        return added;
    }

    uint16_t ParsePosition(uint64_t largest, std::string_view what) {
        ExpectSymbol("[");
        const auto position = static_cast<uint16_t>(ExpectNumber(largest, what).value);
        ExpectSymbol("]");
        return position;
    }

    uint16_t ParseSelector(bool in_names) {
        if (AtSymbol("["))
            return ParsePosition(UINT16_MAX, "a section's number");
        const Token token = token_;
        if (token.kind != TokenKind::Identifier)
            Expected("a section: [n], or a role such as 'last'");
        const auto role = static_cast<uint16_t>(LookUpNumber(SectionRoles(), "a section's role"));
        if (!in_names && IsAnySection(role))
            Report("E306", token.offset, token.text.size(),
                   "'" + std::string(token.text) + "' selects several sections and is for section_names alone");
        return role;
    }

    std::size_t ParseSectionRow(std::vector<SectionCondition> &list, std::size_t begin) {
        SectionCondition element;
        element.section = ParseSelector(false);
        ExpectSymbol(".");
        element.field = static_cast<uint8_t>(ParseField(SectionFields(), UINT8_MAX));
        const std::size_t added = ParseTest(list, element, true, TakeFieldValue<SectionCondition>(SectionFields()));
        CheckAlternatives(list, added, begin,
                          [](const auto &a, const auto &b) { return a.section == b.section && a.field == b.field; });
        return added;
    }

    std::size_t ParseSectionNameRow(std::vector<SectionNameCondition> &list, std::size_t begin) {
        SectionNameCondition element;
        element.section = ParseSelector(true);
        const std::size_t added = ParseTest(list, element, false, [this](SectionNameCondition &each) {
            each.name = ExpectName("a section name", kMaxSectionName);
        });
        CheckAlternatives(list, added, begin, [](const auto &a, const auto &b) {
            const bool several = IsAnySection(a.section);
            return a.section == b.section && !several;
        });
        return added;
    }

    template <typename Element>
    std::size_t ParseNumberedRow(std::vector<Element> &list, std::span<const Field> fields, std::size_t begin) {
        Element element;
        element.index = static_cast<uint8_t>(ParsePosition(UINT8_MAX, "a position"));
        ExpectSymbol(".");
        element.field = static_cast<uint8_t>(ParseField(fields, UINT8_MAX));
        const std::size_t added = ParseTest(list, element, true, TakeFieldValue<Element>(fields));
        CheckAlternatives(list, added, begin,
                          [](const auto &a, const auto &b) { return a.index == b.index && a.field == b.field; });
        return added;
    }

    std::size_t ParseMeasure(std::vector<MeasureCondition> &list, std::size_t begin) {
        MeasureCondition element;
        if (TakeWord("crc32"))
            element.measure = Measure::Crc32;
        else if (TakeWord("entropy"))
            element.measure = Measure::Entropy;
        else
            Expected("entropy(...) or crc32(...)");
        ExpectSymbol("(");
        ParseMeasureRegion(element);
        if (TakeSymbol(","))
            element.length = Take<uint32_t>("a length");
        ExpectSymbol(")");
        const bool entropy = element.measure == Measure::Entropy;
        const std::size_t added = ParseTest(list, element, true, [this, entropy](MeasureCondition &each) {
            each.bits = entropy ? MeasureBits(ExpectReal()) : Take<uint32_t>("a CRC-32");
        });
        CheckAlternatives(list, added, begin, [](const auto &a, const auto &b) {
            return a.region == b.region && a.measure == b.measure && a.length == b.length && a.index == b.index;
        });
        return added;
    }

    void ParseMeasureRegion(MeasureCondition &element) {
        if (token_.kind != TokenKind::Identifier)
            Expected("a region of the file");
        const Token name = token_;
        Advance();
        if (name.text == "region" && TakeSymbol("(")) {
            element.region = Take<uint8_t>("a region's number");
            ExpectSymbol(")");
        } else {
            const Region *region = LookUpRegion(name);
            if (region != nullptr && region->measure_code == 0)
                Report("E307", name.offset, name.text.size(), "'" + std::string(name.text) + "' is not measured");
            element.region = region == nullptr ? uint8_t{0} : region->measure_code;
        }
        if (AtSymbol("["))
            element.index = static_cast<uint8_t>(ParsePosition(UINT8_MAX, "a number"));
    }

    // A region without a section's name; null, with the error reported, when there is none.
    const Region *LookUpRegion(const Token &name) {
        const Region *region = FindRegion(name.text, RegionArgument::None);
        if (region == nullptr)
            region = FindRegion(name.text, RegionArgument::Index);
        if (region == nullptr)
            Report("E204", name.offset, name.text.size(), "there is no region '" + std::string(name.text) + "'",
                   Suggest(name.text, Regions(), [](const Region &each) { return each.name; }));
        return region;
    }

    // ---- Strings --------------------------------------------------------------------------------------------------

    std::size_t ParseStringRow(std::vector<StringFeature> &list) {
        if (token_.kind != TokenKind::Identifier)
            Expected("a string's letter");
        if (list.size() >= kMaxStrings)
            Report("E308", token_.offset, token_.text.size(), "a rule has at most 26 strings, A to Z");
        else if (const std::string letter(1, static_cast<char>('A' + list.size())); token_.text != letter)
            Report("E403", token_.offset, token_.text.size(), "this string's letter is " + letter,
                   "strings are labelled A, B, C, ... in order");
        Advance();
        StringFeature &string = list.emplace_back();
        ExpectStringValue(string);
        // Options may come in any order as far as reading goes; their order is one of writing.
        while (AtWord("wide") || AtWord("nocase")) {
            string.options = static_cast<uint8_t>(string.options | (AtWord("wide") ? kStringWide : kStringNoCase));
            Advance();
        }
        if (!TakeWord("in"))
            Expected("'in' and the region where the string stands", "for example: in section[0]");
        ParseStringRegion(string);
        if (TakeWord("from")) {
            if (!TakeWord("end"))
                Expected("'end'");
            string.kind = static_cast<uint8_t>(string.kind + 1);
        }
        if (TakeWord("at"))
            ParseWindow(string);
        if (TakeWord("drift"))
            string.drift = Take<uint16_t>("a drift");
        string.anchor = DefaultAnchor(string);
        if (TakeWord("anchor")) {
            const Written<uint64_t> anchor = ExpectNumber(UINT8_MAX, "an anchor");
            if (anchor.value >= string.bytes.size())
                Report("E309", anchor.offset, anchor.length, "the anchor is a position within the string");
            string.anchor = static_cast<uint8_t>(anchor.value);
        }
        return 1;
    }

    void ExpectStringValue(StringFeature &string) {
        if (!AtSymbol("="))
            Expected("'='");
        Advance();
        const std::size_t begin = token_.offset;
        if (token_.kind == TokenKind::Text)
            string.bytes = ExpectText("a string").value;
        else if (AtSymbol("{"))
            ParseHexString(string);
        else
            Expected("a text in quotes or bytes in braces");
        if (string.bytes.empty() || string.bytes.size() > kMaxStringLength)
            Report("E310", begin, end_of_last_ - begin,
                   "a string has 1 to 128 bytes; this has " + std::to_string(string.bytes.size()));
        string.bytes.resize(std::min(string.bytes.size(), kMaxStringLength));
    }

    // Reports a mistake between the braces of a hex string and goes on behind them.
    [[noreturn]] void ExpectedInHexString(std::string_view what) {
        try {
            Expected(what);
        } catch (const Unreadable &) {
            while (token_.kind != TokenKind::End && !AtSymbol("}") && !(token_.first_on_line && AtWord("rule")))
                Advance();
            TakeSymbol("}");
            throw;
        }
    }

    void ParseHexString(StringFeature &string) {
        const auto next = [this] {
            end_of_last_ = token_.offset + token_.text.size();
            token_ = lexer_.NextInHexString();
        };
        const auto byte = [&]() -> char {
            uint8_t value = 0;
            const char *const last = token_.text.data() + token_.text.size();
            if (token_.text.size() != 2 || std::from_chars(token_.text.data(), last, value, 16).ptr != last) {
                ExpectedInHexString("a byte of two hexadecimal digits, ?? or [HH]");
            }
            next();
            return static_cast<char>(value);
        };
        next();
        while (!AtSymbol("}")) {
            const std::size_t at = string.bytes.size();
            if (AtSymbol("??")) {
                next();
                string.bytes += '\0';
                Mask(string, at);
            } else if (AtSymbol("[")) {
                next();
                string.bytes += byte();
                Mask(string, at);
                if (!AtSymbol("]"))
                    ExpectedInHexString("']'");
                next();
            } else {
                string.bytes += byte();
            }
        }
        Advance();
    }

    static void Mask(StringFeature &string, std::size_t position) {
        if (position < kMaxStringLength)
            string.mask.set(position);
    }

    void ParseStringRegion(StringFeature &string) {
        if (token_.kind != TokenKind::Identifier)
            Expected("a region of the file");
        const Token name = token_;
        Advance();
        if (name.text == "section" && TakeSymbol("(")) {
            ParseSectionArgument(string);
            string.kind = static_cast<uint8_t>(StringKind::NamedSection);
        } else {
            const Region *region = LookUpRegion(name);
            if (region != nullptr && region->string_kind == 0)
                Report("E307", name.offset, name.text.size(),
                       "strings are not looked for in '" + std::string(name.text) + "'");
            string.kind = region == nullptr || region->string_kind == 0 ? uint8_t{1} : region->string_kind;
        }
        if (AtSymbol("["))
            string.index = static_cast<uint8_t>(ParsePosition(UINT8_MAX, "a number"));
    }

    void ParseSectionArgument(StringFeature &string) {
        const std::size_t begin = token_.offset;
        string.section_name = ExpectText("a section name").value;
        if (TakeSymbol("~"))
            string.section_tail = ExpectText("the bytes behind the name").value;
        if (string.section_name.empty() || string.section_name.size() + string.section_tail.size() > kMaxSectionName)
            Report("E303", begin, end_of_last_ - begin, "a section name and what follows it have 1 to 8 characters");
        while (string.section_tail.ends_with('\0'))
            string.section_tail.pop_back();
        ExpectSymbol(")");
    }

    void ParseWindow(StringFeature &string) {
        string.window_start = Take<uint16_t>("a position");
        string.window_length = 1;
        if (!TakeSymbol(".."))
            return;
        string.window_length = 0;
        if (token_.kind != TokenKind::Number)
            return;
        const Written<uint64_t> last = ExpectNumber(UINT32_MAX, "a position");
        if (last.value < string.window_start || last.value - string.window_start >= UINT16_MAX) {
            Report("E311", last.offset, last.length, "a window has 1 to 65535 positions");
            return;
        }
        string.window_length = static_cast<uint16_t>(last.value - string.window_start + 1);
    }

    // ---- Names ----------------------------------------------------------------------------------------------------

    template <typename Element>
    void ParseOperatorAndName(Element &element, std::string_view what) {
        if (const auto op = TakeOperator())
            element.op = *op;
        element.name = ExpectName(what);
    }

    uint8_t ParseOptions() {
        if (TakeWord("option"))
            return Take<uint8_t>("an option");
        uint8_t option = 0;
        while (AtWord("cased") || AtWord("prefix")) {
            option = static_cast<uint8_t>(option | (AtWord("cased") ? kNameCased : kNamePrefix));
            Advance();
        }
        return option;
    }

    uint16_t ParseElement() {
        ExpectSymbol("#", "the row of the other list that this belongs to, counted from 0: #0");
        return Take<uint16_t>("an element's number");
    }

    std::size_t ParseImportModule(std::vector<ImportModule> &list) {
        ImportModule element;
        if (AtSymbol("["))
            element.index = static_cast<int16_t>(ParsePosition(INT16_MAX, "an import's position"));
        ParseOperatorAndName(element, "a module's name");
        element.option = ParseOptions();
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseImportFunction(std::vector<ImportFunction> &list) {
        ImportFunction element;
        element.index = ParseElement();
        ParseOperatorAndName(element, "a function's name");
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseExportName(std::vector<ExportName> &list) {
        ExportName element;
        ParseOperatorAndName(element, "an exported name");
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseObjectName(std::vector<ObjectName> &list) {
        ObjectName element;
        element.index = ParsePosition(UINT16_MAX, "an object's position");
        ParseOperatorAndName(element, "an object's name");
        element.option = ParseOptions();
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseMemberName(std::vector<MemberName> &list) {
        MemberName element;
        element.index = ParseElement();
        ParseOperatorAndName(element, "a member's name");
        element.option = ParseOptions();
        list.push_back(std::move(element));
        return 1;
    }

    // ---- Resources ------------------------------------------------------------------------------------------------

    // Which entry: a number, any, a name, or both.
    void ParseWhich(uint32_t &number, std::string &name) {
        ExpectSymbol("[");
        number = kAnyResource;
        if (token_.kind == TokenKind::Text) {
            name = ExpectName("a resource name", kMaxResourceName);
        } else if (!TakeWord("any")) {
            number = Take<uint32_t>("a number, any, or a name");
            if (TakeSymbol(","))
                name = ExpectName("a resource name", kMaxResourceName);
        }
        ExpectSymbol("]");
    }

    uint16_t ParseLanguage() { return TakeWord("language") ? Take<uint16_t>("a language") : uint16_t{0}; }

    std::size_t ParseResource(std::vector<ResourceEntry> &list) {
        ResourceEntry element;
        element.type = LookUpNumber(ResourceTypes(), "a resource type");
        ParseWhich(element.id, element.name);
        element.language = ParseLanguage();
        if (TakeWord("crc32"))
            element.crc32 = Take<uint32_t>("a CRC-32");
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseResourceType(std::vector<ResourceTypeEntry> &list) {
        ResourceTypeEntry element;
        if (TakeWord("type"))
            element.level = kResourceTypeLevel;
        else if (TakeWord("entry"))
            element.level = kResourceEntryLevel;
        else if (TakeWord("level"))
            element.level = Take<uint32_t>("a level");
        else
            Expected("'type' or 'entry'");
        ParseWhich(element.number, element.name);
        element.language = ParseLanguage();
        if (TakeWord("absent"))
            element.absent = 1;
        else if (TakeWord("mode"))
            element.absent = Take<uint32_t>("a mode");
        list.push_back(std::move(element));
        return 1;
    }

    std::size_t ParseResourceString(std::vector<ResourceString> &list) {
        ResourceString element;
        element.type = LookUpNumber(ResourceTypes(), "a resource type");
        ParseWhich(element.id, element.name);
        if (TakeSymbol(".")) {
            if (token_.kind != TokenKind::Identifier)
                Expected("the name of a string");
            if (element.type != kVersionResource && element.type != kManifestResource)
                Report("E312", token_.offset, token_.text.size(),
                       "strings of VERSION and MANIFEST resources have names; others have numbers: [n]");
            element.key = LookUpNumber(ResourceKeys(), "the name of a string");
        } else {
            ExpectSymbol("[", "the string's name or number: .CompanyName or [n]");
            element.key = Take<uint32_t>("a string's number");
            ExpectSymbol("]");
        }
        element.text = ExpectName("a text");
        element.language = ParseLanguage();
        list.push_back(std::move(element));
        return 1;
    }

    // ---- Whole rules ----------------------------------------------------------------------------------------------

    void CheckRule(const Rule &rule, const RuleOrigin &origin, std::size_t errors_before) {
        if (const auto error = CheckExpression(rule.expression, rule.strings.size()))
            Report("E404", expression_offset_ + error->offset, 1, error->message,
                   "each operation stands in its own parentheses: ((A|B)&C)");
        const ItemOrigin &members = origin.of(Item::MemberNames);
        for (std::size_t i = 0; i < rule.member_names.size(); ++i) {
            if (rule.member_names[i].index >= rule.object_names.size())
                Report("E405", members.rows[i], 1,
                       "object_names has no row #" + std::to_string(rule.member_names[i].index));
        }
        // What a rule with errors asks is not known.
        if (ComputeFeatureFlags(rule) == 0 && file_.diagnostics.size() == errors_before)
            Report("E406", origin.begin, 4, "this rule asks nothing", "a rule without conditions never matches");
    }

    // ---- Going on behind an error ---------------------------------------------------------------------------------

    // To the next row: the next line, a ';' or a closing brace. `begin` is where the bad row began, and is passed.
    void SkipRow(std::size_t begin) {
        while (token_.kind != TokenKind::End && !AtSymbol("}")) {
            if (token_.offset != begin && (token_.first_on_line || AtSymbol(";")))
                break;
            if (AtSymbol("{"))
                SkipBraces();
            else
                Advance();
        }
        TakeSymbol(";");
    }

    // Past a pair of braces and what is between them, up to a rule's beginning at the most.
    void SkipBraces() {
        std::size_t depth = 0;
        while (token_.kind != TokenKind::End && !(depth > 0 && token_.first_on_line && AtWord("rule"))) {
            if (AtSymbol("{"))
                ++depth;
            const bool closes = AtSymbol("}") && --depth == 0;
            Advance();
            if (closes)
                return;
        }
    }

    void SkipToNextRule() {
        while (token_.kind != TokenKind::End && !(token_.first_on_line && AtWord("rule")))
            Advance();
    }

    std::string_view text_;
    ParsedFile &file_;                 // its diagnostics are errors alone until the text ends
    std::vector<Diagnostic> warnings_; // which must not use up the room for errors
    Lexer lexer_;
    Token token_;
    std::size_t end_of_last_ = 0;
    std::size_t expression_offset_ = 0;
};

} // namespace

ParsedFile ParseRules(std::string_view text) {
    ParsedFile file;
    Parser(text, file).Parse();
    return file;
}

} // namespace tavrik::rules::text
