#include "rules/text/printer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <stdexcept>

#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

constexpr std::size_t kHexBytesPerLine = 16;

std::string Decimal(uint64_t value) {
    return std::to_string(value);
}

std::string Hex(uint64_t value) {
    if (value < 10)
        return Decimal(value);
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16);
    std::string text(digits.data(), end.ptr);
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
    return "0x" + text;
}

// The value of an element of a list as the text spells it, or by its number.
std::string SpelledOr(const Spelling &spelling, Item item, std::size_t element, uint64_t value, Radix radix) {
    if (spelling.values != nullptr)
        if (const auto found = spelling.values->find({item, element}); found != spelling.values->end())
            return found->second;
    return NumberText(value, radix);
}

std::string HexByte(uint8_t byte) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string Real(double value) {
    std::array<char, 400> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
    std::string text(digits.data(), end.ptr);
    return text.find('.') == std::string::npos ? text + ".0" : text;
}

std::string Position(uint32_t index) {
    return "[" + Decimal(index) + "]";
}

std::string FieldName(std::span<const Field> fields, uint32_t number) {
    const Field *field = FindField(fields, number);
    return field != nullptr ? std::string(field->name) : "field" + Position(number);
}

Radix FieldRadix(std::span<const Field> fields, uint32_t number) {
    const Field *field = FindField(fields, number);
    return field != nullptr ? field->radix : Radix::Hex;
}

std::string Selector(uint16_t section) {
    const std::string_view role = NameOf(SectionRoles(), section);
    return role.empty() ? Position(section) : std::string(role);
}

std::string Options(uint8_t option) {
    if ((option & ~(kNameCased | kNamePrefix)) != 0)
        return " option " + Decimal(option);
    return std::string((option & kNameCased) != 0 ? " cased" : "") + ((option & kNamePrefix) != 0 ? " prefix" : "");
}

// A set of bits by their names, the others as one number after them.
std::string Bits(std::span<const NamedNumber> names, uint32_t bits) {
    std::string text(bits == 0 ? NameOf(names, 0) : "");
    const auto add = [&](std::string_view part) { text.append(text.empty() ? "" : ", ").append(part); };
    for (const NamedNumber &name : names) {
        if (name.number != 0 && (bits & name.number) != 0) {
            add(name.name);
            bits &= ~name.number;
        }
    }
    if (bits != 0)
        add(Hex(bits));
    return text;
}

// A row of a block: what is asked about, what is asked, and the elements of the list that it covers.
struct Row {
    std::string left;
    std::string right;
    std::size_t first = 0;
    std::size_t count = 1;
};

// Collects the lines of a rule.
class LineList {
public:
    void Add(LineKind kind, std::string text) {
        lines_.push_back({kind, Item::Count, 0, 0, kind == LineKind::Item ? std::size_t{1} : 0, std::move(text)});
    }

    // An item of one line.
    void AddItem(Item item, const std::string &text) {
        lines_.push_back({LineKind::Item, item, 0, 0, 1, std::string(ItemWord(item)) + " " + text});
    }

    // A block, unless it is empty; `aligned` pads the left sides to one width.
    void AddBlock(Item item, const std::vector<Row> &rows, bool aligned) {
        if (rows.empty())
            return;
        std::size_t width = 0;
        if (aligned) {
            for (const Row &row : rows)
                width = std::max(width, row.left.size() + 1);
        }
        AddItem(item, "{");
        for (const Row &row : rows) {
            const std::size_t padding = aligned ? width - row.left.size() : 0;
            lines_.push_back(
                {LineKind::Row, item, row.first, row.count, 2, row.left + std::string(padding, ' ') + row.right});
        }
        lines_.push_back({LineKind::ItemEnd, item, 0, 0, 1, "}"});
    }

    void Append(std::vector<PrintedLine> more) { std::ranges::move(more, std::back_inserter(lines_)); }

    std::vector<PrintedLine> Take() { return std::move(lines_); }

private:
    std::vector<PrintedLine> lines_;
};

// Rows of conditions, with runs of == on one value and pairs of >= and <= in their short forms. `left` gives the value
// asked about, `right` what it is compared with, `same` tells whether two conditions ask about one value.
template <typename Element, typename Left, typename Right, typename Same>
std::vector<Row> ConditionRows(const std::vector<Element> &list, bool has_ranges, Left left, Right right, Same same) {
    std::vector<Row> rows;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const Element &first = list[i];
        Row row{left(first), std::string(OperatorText(first.op)) + " " + right(first), i};
        const auto next = [&] { return i + 1 < list.size() && same(first, list[i + 1]) ? &list[i + 1] : nullptr; };
        if (first.op == Operator::Equal) {
            for (; next() != nullptr && next()->op == Operator::Equal; ++i)
                row.right += " | " + right(*next());
        } else if (has_ranges && first.op == Operator::AtLeast && next() != nullptr && next()->op == Operator::AtMost) {
            row.right = "in " + right(first) + ".." + right(*next());
            ++i;
        }
        row.count = i + 1 - row.first;
        rows.push_back(std::move(row));
    }
    return rows;
}

std::vector<Row> HeaderRows(const Rule &rule, const Spelling &spelling) {
    return ConditionRows(
        rule.header_conditions, true, [](const auto &e) { return FieldName(HeaderFields(), e.field); },
        [&](const auto &e) {
            const auto place = static_cast<std::size_t>(&e - rule.header_conditions.data());
            return SpelledOr(spelling, Item::Header, place, e.value, FieldRadix(HeaderFields(), e.field));
        },
        [](const auto &a, const auto &b) { return a.field == b.field; });
}

std::vector<Row> SectionRows(const Rule &rule, const Spelling &spelling) {
    return ConditionRows(
        rule.section_conditions, true,
        [](const auto &e) { return Selector(e.section) + "." + FieldName(SectionFields(), e.field); },
        [&](const auto &e) {
            const auto place = static_cast<std::size_t>(&e - rule.section_conditions.data());
            return SpelledOr(spelling, Item::Sections, place, e.value, FieldRadix(SectionFields(), e.field));
        },
        [](const auto &a, const auto &b) { return a.section == b.section && a.field == b.field; });
}

std::vector<Row> SectionNameRows(const Rule &rule) {
    return ConditionRows(
        rule.section_names, false, [](const auto &e) { return Selector(e.section); },
        [](const auto &e) { return QuoteText(e.name); },
        [](const auto &a, const auto &b) { return a.section == b.section && !IsAnySection(a.section); });
}

// Conditions on a field of a numbered structure: import descriptors and objects.
template <typename Element>
std::vector<Row> NumberedRows(const std::vector<Element> &list, std::span<const Field> fields) {
    return ConditionRows(
        list, true, [&](const Element &e) { return Position(e.index) + "." + FieldName(fields, e.field); },
        [&](const Element &e) { return NumberText(e.value, FieldRadix(fields, e.field)); },
        [](const Element &a, const Element &b) { return a.index == b.index && a.field == b.field; });
}

std::string MeasureText(const MeasureCondition &e) {
    const Region *region = FindMeasureRegion(e.region);
    std::string text = e.measure == Measure::Entropy ? "entropy(" : "crc32(";
    text += region != nullptr ? std::string(region->name) : "region(" + Decimal(e.region) + ")";
    if (e.index != 0 || (region != nullptr && region->argument == RegionArgument::Index))
        text += Position(e.index);
    if (e.length != 0)
        text += ", " + Hex(e.length);
    return text + ")";
}

std::vector<Row> MeasureRows(const Rule &rule) {
    return ConditionRows(
        rule.measure_conditions, true, MeasureText,
        [](const auto &e) { return e.measure == Measure::Entropy ? Real(MeasureEntropy(e)) : Hex(e.bits); },
        [](const auto &a, const auto &b) {
            return a.region == b.region && a.measure == b.measure && a.length == b.length && a.index == b.index;
        });
}

std::string StringValue(const StringFeature &e) {
    const auto printable = [](char c) { return (c >= 0x20 && c <= 0x7E) || c == '\t' || c == '\n' || c == '\r'; };
    if (e.mask.none() && std::ranges::all_of(e.bytes, printable))
        return QuoteText(e.bytes);
    const bool one_line = e.bytes.size() <= kHexBytesPerLine;
    std::string text = "{";
    for (std::size_t i = 0; i < e.bytes.size(); ++i) {
        if (!one_line && i % kHexBytesPerLine == 0)
            text.append("\n").append(kIndent).append(kIndent).append(kIndent);
        else
            text += ' ';
        const auto byte = static_cast<uint8_t>(e.bytes[i]);
        if (!e.mask[i])
            text += HexByte(byte);
        else
            text += byte == 0 ? "??" : "[" + HexByte(byte) + "]";
    }
    return one_line ? text + " }" : text.append("\n").append(kIndent).append(kIndent).append("}");
}

std::string StringRegion(const StringFeature &e) {
    const Region *region = FindStringRegion(e.kind);
    if (region == nullptr)
        throw std::invalid_argument("no string kind has the number " + Decimal(e.kind));
    std::string text(region->name);
    if (region->argument == RegionArgument::Name) {
        text += "(" + QuoteText(e.section_name);
        if (!e.section_tail.empty())
            text += " ~ " + QuoteText(e.section_tail);
        text += ")";
    }
    if (e.index != 0 || region->argument == RegionArgument::Index)
        text += Position(e.index);
    return FromEnd(e.kind) ? text + " from end" : text;
}

std::string StringWindow(const StringFeature &e) {
    if (e.window_start == 0 && e.window_length == 0)
        return "";
    std::string text = " at " + Hex(e.window_start);
    if (e.window_length == 0)
        text += "..";
    else if (e.window_length != 1)
        text += ".." + Hex(uint32_t{e.window_start} + e.window_length - 1);
    return text;
}

std::vector<Row> StringRows(const Rule &rule, const Spelling &spelling) {
    std::vector<Row> rows;
    auto letter = static_cast<char>('A' + spelling.first_string);
    for (const StringFeature &e : rule.strings) {
        std::string text = std::string(1, letter++) + " = " + StringValue(e);
        if ((e.options & kStringWide) != 0)
            text += " wide";
        if ((e.options & kStringNoCase) != 0)
            text += " nocase";
        text += " in " + StringRegion(e) + StringWindow(e);
        if (e.drift != 0)
            text += " drift " + Hex(e.drift);
        if (e.anchor != DefaultAnchor(e))
            text += " anchor " + Decimal(e.anchor);
        rows.push_back({std::move(text), "", rows.size()});
    }
    return rows;
}

// The rows of a list whose elements have no left side of their own.
template <typename Element, typename Text>
std::vector<Row> PlainRows(const std::vector<Element> &list, Text text) {
    std::vector<Row> rows;
    rows.reserve(list.size());
    for (const Element &e : list)
        rows.push_back({text(e), "", rows.size()});
    return rows;
}

std::string ResourceType(uint32_t type) {
    const std::string_view name = NameOf(ResourceTypes(), type);
    return name.empty() ? Decimal(type) : std::string(name);
}

// `number` is that of `id` as it is written.
std::string Which(uint32_t id, const std::string &name, const std::string &number) {
    if (name.empty())
        return "[" + (id == kAnyResource ? "any" : number) + "]";
    return "[" + (id == kAnyResource ? "" : number + ", ") + QuoteText(name) + "]";
}

std::string Which(uint32_t id, const std::string &name) {
    return Which(id, name, Decimal(id));
}

std::string Language(uint16_t language) {
    return language == 0 ? "" : " language " + Hex(language);
}

std::string ResourceText(const ResourceEntry &e) {
    return ResourceType(e.type) + Which(e.id, e.name) + Language(e.language) +
           (e.crc32 == 0 ? "" : " crc32 " + Hex(e.crc32));
}

std::string ResourceTypeText(const ResourceTypeEntry &e, const std::string &number) {
    std::string text = e.level == kResourceTypeLevel    ? "type"
                       : e.level == kResourceEntryLevel ? "entry"
                                                        : "level " + Decimal(e.level);
    text += Which(e.number, e.name, number) + Language(e.language);
    if (e.absent == 1)
        return text + " absent";
    return e.absent == 0 ? text : text + " mode " + Decimal(e.absent);
}

std::string ResourceStringText(const ResourceString &e) {
    const bool has_names = e.type == kVersionResource || e.type == kManifestResource;
    const std::string_view key = has_names ? NameOf(ResourceKeys(), e.key) : "";
    return ResourceType(e.type) + Which(e.id, e.name) + (key.empty() ? Position(e.key) : "." + std::string(key)) + " " +
           QuoteText(e.text) + Language(e.language);
}

// A name with its operator, of which the usual one is left out.
template <typename Element>
std::string NameText(const Element &e) {
    return (e.op == Operator::Equal ? "" : std::string(OperatorText(e.op)) + " ") + QuoteText(e.name);
}

std::string ImportModuleText(const ImportModule &e) {
    const std::string position = e.index < 0 ? "" : Position(static_cast<uint32_t>(e.index)) + " ";
    return position + NameText(e) + Options(e.option);
}

// A name that belongs to an element of another list of the rule.
template <typename Element>
std::string ElementText(const Element &e) {
    return "#" + Decimal(e.index) + " " + NameText(e);
}

std::string ObjectText(const ObjectName &e) {
    return Position(e.index) + " " + NameText(e) + Options(e.option);
}

std::string MemberText(const MemberName &e) {
    return ElementText(e) + Options(e.option);
}

// An expression as it was written; in quotes if it begins or ends with a blank.
std::string ExpressionText(std::string_view expression) {
    const bool plain = expression.front() != ' ' && expression.back() != ' ';
    return plain ? std::string(expression) : QuoteText(expression);
}

} // namespace

std::string QuoteText(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
        case '\\':
            quoted.append({'\\', c});
            break;
        case '\t':
            quoted += "\\t";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\r':
            quoted += "\\r";
            break;
        default:
            if (c >= 0x20 && c <= 0x7E)
                quoted += c;
            else
                quoted += "\\x" + HexByte(static_cast<uint8_t>(c));
        }
    }
    return quoted + "\"";
}

std::string NumberText(uint64_t value, Radix radix) {
    return radix == Radix::Decimal ? Decimal(value) : Hex(value);
}

std::vector<PrintedLine> MetadataLines(const Rule &rule) {
    LineList lines;
    lines.AddBlock(Item::Meta,
                   PlainRows(rule.metadata,
                             [](const MetadataEntry &e) {
                                 return std::string(NameOf(MetadataKeys(), static_cast<uint32_t>(e.key))) + " " +
                                        QuoteText(e.text);
                             }),
                   false);
    return lines.Take();
}

std::vector<PrintedLine> RuleLines(const Rule &rule, const Spelling &spelling) {
    LineList lines;
    lines.Add(LineKind::Head, "rule " + Decimal(rule.rule_id) + " " + QuoteText(rule.detection_name) + " for " +
                                  Bits(TargetNames(), rule.attribute_a) + " {");
    lines.Append(MetadataLines(rule));
    if (rule.attribute_b != 0)
        lines.AddItem(Item::Traits, Bits(TraitNames(), rule.attribute_b));
    if (rule.stored_flags != ComputeFeatureFlags(rule))
        lines.AddItem(Item::StoredFlags, Decimal(rule.stored_flags));
    if (rule.reserved != 0)
        lines.AddItem(Item::Reserved, Hex(rule.reserved));
    lines.AddBlock(Item::Header, HeaderRows(rule, spelling), true);
    lines.AddBlock(Item::Sections, SectionRows(rule, spelling), true);
    lines.AddBlock(Item::SectionNames, SectionNameRows(rule), true);
    lines.AddBlock(Item::Strings, StringRows(rule, spelling), false);
    if (!rule.expression.empty())
        lines.AddItem(Item::When, ExpressionText(spelling.expression.empty() ? rule.expression : spelling.expression));
    lines.AddBlock(Item::ImportTable, NumberedRows(rule.indexed_conditions, ImportTableFields()), true);
    lines.AddBlock(Item::ImportModules, PlainRows(rule.import_modules, ImportModuleText), false);
    const std::size_t any = spelling.is_part ? kAnyModule : rule.import_modules.size();
    const auto function_text = [any](const ImportFunction &e) {
        return e.index == any ? "any " + NameText(e) : ElementText(e);
    };
    const auto type_text = [&](const ResourceTypeEntry &e) {
        const auto place = static_cast<std::size_t>(&e - rule.resource_type_entries.data());
        return ResourceTypeText(e, SpelledOr(spelling, Item::ResourceTypes, place, e.number, Radix::Decimal));
    };
    lines.AddBlock(Item::ImportFunctions, PlainRows(rule.import_functions, function_text), false);
    lines.AddBlock(Item::ExportModule, PlainRows(rule.export_module_names, NameText<ExportName>), false);
    lines.AddBlock(Item::ExportFunctions, PlainRows(rule.export_functions, NameText<ExportName>), false);
    lines.AddBlock(Item::Resources, PlainRows(rule.resource_entries, ResourceText), false);
    lines.AddBlock(Item::ResourceTypes, PlainRows(rule.resource_type_entries, type_text), false);
    lines.AddBlock(Item::ResourceStrings, PlainRows(rule.resource_strings, ResourceStringText), false);
    lines.AddBlock(Item::Measures, MeasureRows(rule), true);
    lines.AddBlock(Item::ObjectFields, NumberedRows(rule.secondary_conditions, ObjectFields()), true);
    lines.AddBlock(Item::ObjectNames, PlainRows(rule.object_names, ObjectText), false);
    lines.AddBlock(Item::MemberNames, PlainRows(rule.member_names, MemberText), false);
    lines.Add(LineKind::RuleEnd, "}");
    return lines.Take();
}

std::string PrintRule(const Rule &rule) {
    std::string out;
    for (const PrintedLine &line : RuleLines(rule)) {
        for (std::size_t level = 0; level < line.indent; ++level)
            out += kIndent;
        out.append(line.text).append("\n");
    }
    return out;
}

std::string PrintRuleSet(const RuleSet &set) {
    std::string out;
    for (const Rule &rule : set.rules) {
        if (!out.empty())
            out += "\n";
        out += PrintRule(rule);
    }
    return out;
}

} // namespace tavrik::rules::text
