// Rows that compare a value of the file: header, sections, section_names, import_table, measures, object_fields.
#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>

#include "rules/constants.h"
#include "rules/numbers.h"
#include "rules/text/operators.h"
#include "rules/text/printer.h"
#include "rules/text/rows.h"
#include "rules/text/suggestions.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

// ---- Tests ---------------------------------------------------------------------------------------------------------

// Parses the right side of a row and appends `element` with its operator and value, once for each element that the
// row denotes; returns their number. `take` reads a value and sets it in an element; `ranges` tells whether `in` is
// allowed.
template <typename Element, typename TakeValue>
std::size_t ParseTest(TokenCursor &cursor, std::vector<Element> &list, Element element, bool ranges, TakeValue take) {
    if (ranges && cursor.TakeWord("in")) {
        Element lower = element;
        lower.op = Operator::AtLeast;
        take(lower);
        cursor.ExpectSymbol("..", "a range is written as 3..7");
        element.op = Operator::AtMost;
        take(element);
        list.push_back(lower);
        list.push_back(element);
        return 2;
    }
    const auto op = TakeOperator(cursor);
    if (!op)
        cursor.Expected(ranges ? "an operator (== != < > <= >= has in)" : "an operator (== or !=)");
    element.op = *op;
    std::size_t count = 0;
    do {
        take(element);
        list.push_back(element);
        ++count;
    } while (*op == Operator::Equal && cursor.TakeSymbol("|"));
    return count;
}

// Refuses a row of == after one on the same value: both would be dumped as one row. `added` is the number of elements
// of the second.
template <typename Element, typename Same>
void CheckAlternatives(TokenCursor &cursor, const std::vector<Element> &list, std::size_t added, std::size_t begin,
                       Same same) {
    // What a row with an error asks about is not known.
    if (cursor.HasErrorSince(begin) || added == 0 || added == list.size())
        return;
    const Element &last = list[list.size() - added - 1];
    const Element &first = list[list.size() - added];
    if (last.op == Operator::Equal && first.op == Operator::Equal && same(last, first))
        cursor.Report(Code::E402, begin, cursor.end_of_last() - begin, "the row before asks about the same value",
                      "write alternatives in one row: == a | b");
}

// ---- Fields --------------------------------------------------------------------------------------------------------

constexpr uint64_t kLastDirectory = 15;

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

// directory[IMPORT]: what its fields' names begin with, such as ImportTable.
std::string ParseDirectory(TokenCursor &cursor) {
    uint64_t index = 0;
    if (cursor.At(TokenKind::Identifier)) {
        const NamedNumber *constant = FindConstant(Directories(), cursor.token().text);
        if (constant == nullptr)
            cursor.Report(Code::E206, cursor.offset(), cursor.length(), "'" + cursor.Text() + "' is no directory",
                          SuggestFrom(Directories().names, cursor.token().text,
                                      [](const NamedNumber &each) { return each.name; }));
        else
            index = constant->number;
        cursor.Advance();
    } else {
        index = ExpectNumber(cursor, kLastDirectory, "a directory's number").value;
    }
    cursor.ExpectSymbol("]");
    const std::string_view field = HeaderFields()[header_field::kExportTable + 2 * index].name;
    return std::string(field.substr(0, field.find('.')));
}

uint16_t ParseField(TokenCursor &cursor, std::span<const Field> fields, uint32_t largest) {
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("the name of a field");
    const std::size_t begin = cursor.offset();
    std::string name = cursor.Text();
    std::optional<uint32_t> number;
    cursor.Advance();
    while (true) {
        if (cursor.TakeSymbol(".")) {
            if (!cursor.At(TokenKind::Identifier))
                cursor.Expected("the name of a field");
            name.append(".").append(cursor.token().text);
            number.reset();
            cursor.Advance();
        } else if (cursor.TakeSymbol("[")) {
            if (name == "directory") {
                name = ParseDirectory(cursor);
                continue;
            }
            const auto index = static_cast<uint32_t>(ExpectNumber(cursor, largest, "a field's number").value);
            number = name == "field" ? std::optional(index) : std::nullopt;
            name += "[" + std::to_string(index) + "]";
            cursor.ExpectSymbol("]");
        } else {
            break;
        }
    }
    if (number)
        return static_cast<uint16_t>(*number);
    const Field *field = LookUp(fields, name);
    if (field == nullptr) {
        cursor.Report(Code::E203, begin, cursor.end_of_last() - begin, "there is no field '" + name + "'",
                      SuggestFrom(fields, name, [](const Field &each) { return each.name; }));
        return 0;
    }
    return field->number;
}

// The values of a field by their names, or a number; flags are joined by +. Notes how it was written, unless in numbers
// alone.
Written<uint64_t> ExpectValue(TokenCursor &cursor, const ConstantGroup *group) {
    Written<uint64_t> all{0, cursor.offset(), 0};
    std::string spelled;
    bool has_names = false;
    do {
        const bool is_name = cursor.At(TokenKind::Identifier);
        if (is_name && group == nullptr)
            cursor.Expected("a value", "values of this field are numbers: 500 or 0x1F4");
        if (is_name) {
            const NamedNumber *constant = FindConstant(*group, cursor.token().text);
            if (constant == nullptr)
                cursor.Report(
                    Code::E206, cursor.offset(), cursor.length(), "'" + cursor.Text() + "' is no value of this field",
                    SuggestFrom(group->names, cursor.token().text, [](const NamedNumber &each) { return each.name; }));
            else
                all.value |= constant->number;
            spelled += constant == nullptr ? "" : NameOf(group->names, constant->number);
            has_names = true;
            cursor.Advance();
        } else {
            const uint64_t number = ExpectNumber(cursor, UINT32_MAX, "a value").value;
            all.value |= number;
            spelled += NumberText(number, Radix::Hex);
        }
        spelled += " + ";
    } while (group != nullptr && group->are_flags && cursor.TakeSymbol("+"));
    spelled.resize(spelled.size() - 3);
    cursor.NoteValue(has_names ? spelled : "");
    all.length = cursor.end_of_last() - all.offset;
    return all;
}

// Warns about a value wider than its field.
void CheckWidth(TokenCursor &cursor, std::span<const Field> fields, uint32_t number, const Written<uint64_t> &value) {
    const Field *field = FindField(fields, number);
    if (field != nullptr && field->width < 4 && value.value >> (8 * field->width) != 0)
        cursor.Warn(Code::W502, value.offset, value.length,
                    std::string(field->name) + " has " + std::to_string(8 * field->width) +
                        " bits and never this value");
}

template <typename Element>
auto TakeFieldValue(TokenCursor &cursor, std::span<const Field> fields) {
    return [&cursor, fields](Element &element) {
        const Written<uint64_t> value = ExpectValue(cursor, ConstantsOf(fields, element.field));
        CheckWidth(cursor, fields, element.field, value);
        element.value = static_cast<uint32_t>(value.value);
    };
}

// A field of a numbered structure: an import descriptor or an object.
template <typename Element>
void ParseNumberedRow(TokenCursor &cursor, std::vector<Element> &list, std::span<const Field> fields,
                      std::size_t begin) {
    Element element;
    element.index = static_cast<uint8_t>(ParsePosition(cursor, UINT8_MAX, "a position"));
    cursor.ExpectSymbol(".");
    element.field = static_cast<uint8_t>(ParseField(cursor, fields, UINT8_MAX));
    const std::size_t added = ParseTest(cursor, list, element, true, TakeFieldValue<Element>(cursor, fields));
    CheckAlternatives(cursor, list, added, begin,
                      [](const auto &a, const auto &b) { return a.index == b.index && a.field == b.field; });
}

// ---- Sections and measured regions ---------------------------------------------------------------------------------

uint16_t ParseSelector(TokenCursor &cursor, bool in_names) {
    if (cursor.AtSymbol("["))
        return ParsePosition(cursor, UINT16_MAX, "a section's number");
    const Token token = cursor.token();
    if (token.kind != TokenKind::Identifier)
        cursor.Expected("a section: [n], or a role such as 'last'");
    const auto role = static_cast<uint16_t>(LookUpNumber(cursor, SectionRoles(), "a section's role"));
    if (!in_names && IsAnySection(role))
        cursor.Report(Code::E306, token.offset, token.text.size(),
                      "'" + std::string(token.text) + "' selects several sections and is for section_names alone");
    return role;
}

void ParseMeasureRegion(TokenCursor &cursor, MeasureCondition &element) {
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("a region of the file");
    const Token name = cursor.token();
    cursor.Advance();
    if (name.text == "region" && cursor.TakeSymbol("(")) {
        element.region = Take<uint8_t>(cursor, "a region's number");
        cursor.ExpectSymbol(")");
    } else {
        const Region *region = LookUpRegion(cursor, name);
        if (region != nullptr && region->measure_code == 0)
            cursor.Report(Code::E307, name.offset, name.text.size(),
                          "'" + std::string(name.text) + "' is not measured");
        element.region = region == nullptr ? uint8_t{0} : region->measure_code;
    }
    if (cursor.AtSymbol("["))
        element.index = static_cast<uint8_t>(ParsePosition(cursor, UINT8_MAX, "a number"));
}

} // namespace

void ParseRow(TokenCursor &cursor, std::vector<HeaderCondition> &list, std::size_t begin) {
    HeaderCondition element;
    element.field = ParseField(cursor, HeaderFields(), UINT16_MAX);
    const std::size_t added =
        ParseTest(cursor, list, element, true, TakeFieldValue<HeaderCondition>(cursor, HeaderFields()));
    CheckAlternatives(cursor, list, added, begin, [](const auto &a, const auto &b) { return a.field == b.field; });
}

void ParseRow(TokenCursor &cursor, std::vector<SectionCondition> &list, std::size_t begin) {
    SectionCondition element;
    element.section = ParseSelector(cursor, false);
    cursor.ExpectSymbol(".");
    element.field = static_cast<uint8_t>(ParseField(cursor, SectionFields(), UINT8_MAX));
    const std::size_t added =
        ParseTest(cursor, list, element, true, TakeFieldValue<SectionCondition>(cursor, SectionFields()));
    CheckAlternatives(cursor, list, added, begin,
                      [](const auto &a, const auto &b) { return a.section == b.section && a.field == b.field; });
}

void ParseRow(TokenCursor &cursor, std::vector<SectionNameCondition> &list, std::size_t begin) {
    SectionNameCondition element;
    element.section = ParseSelector(cursor, true);
    const std::size_t added = ParseTest(cursor, list, element, false, [&cursor](SectionNameCondition &each) {
        each.name = ExpectName(cursor, "a section name", kMaxSectionName);
    });
    CheckAlternatives(cursor, list, added, begin,
                      [](const auto &a, const auto &b) { return a.section == b.section && !IsAnySection(a.section); });
}

void ParseRow(TokenCursor &cursor, std::vector<IndexedCondition> &list, std::size_t begin) {
    ParseNumberedRow(cursor, list, ImportTableFields(), begin);
}

void ParseRow(TokenCursor &cursor, std::vector<SecondaryCondition> &list, std::size_t begin) {
    ParseNumberedRow(cursor, list, ObjectFields(), begin);
}

void ParseRow(TokenCursor &cursor, std::vector<MeasureCondition> &list, std::size_t begin) {
    MeasureCondition element;
    if (cursor.TakeWord("crc32"))
        element.measure = Measure::Crc32;
    else if (cursor.TakeWord("entropy"))
        element.measure = Measure::Entropy;
    else
        cursor.Expected("entropy(...) or crc32(...)");
    cursor.ExpectSymbol("(");
    ParseMeasureRegion(cursor, element);
    if (cursor.TakeSymbol(","))
        element.length = Take<uint32_t>(cursor, "a length");
    cursor.ExpectSymbol(")");
    const bool entropy = element.measure == Measure::Entropy;
    const std::size_t added = ParseTest(cursor, list, element, true, [&cursor, entropy](MeasureCondition &each) {
        each.bits = entropy ? MeasureBits(ExpectReal(cursor)) : Take<uint32_t>(cursor, "a CRC-32");
    });
    CheckAlternatives(cursor, list, added, begin, [](const auto &a, const auto &b) {
        return a.region == b.region && a.measure == b.measure && a.length == b.length && a.index == b.index;
    });
}

} // namespace tavrik::rules::text
