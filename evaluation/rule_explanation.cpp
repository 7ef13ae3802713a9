#include "evaluation/rule_explanation.h"

#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "evaluation/evaluator.h"
#include "evaluation/string_search.h"
#include "rules/names.h"
#include "rules/record/reader.h"
#include "rules/text/printer.h"

namespace tavrik::evaluation {

using rules::Item;

namespace {

constexpr std::size_t kMostNames = 8;    // in a list that is shown
constexpr std::size_t kLongestText = 80; // bytes of one text that is shown
constexpr char kAbsent[] = "the file has none";

std::string Has(const std::string &value) {
    return "the file has " + value;
}

std::string NumberText(std::optional<uint32_t> value, rules::Radix radix) {
    if (!value)
        return kAbsent;
    return Has(radix == rules::Radix::Hex ? fmt::format("0x{:X}", *value) : fmt::format("{}", *value));
}

std::string Quoted(std::string_view text) {
    return text.size() <= kLongestText ? rules::text::QuoteText(text)
                                       : rules::text::QuoteText(text.substr(0, kLongestText)) + "...";
}

std::string TextText(const std::optional<std::string> &text) {
    return text ? Has(Quoted(*text)) : kAbsent;
}

// Some names of a list, and how many more there are.
template <typename Names>
std::string NamesText(const Names &names) {
    if (names.empty())
        return kAbsent;
    std::string text;
    std::size_t shown = 0;
    for (const auto &name : names) {
        if (shown == kMostNames)
            return Has(fmt::format("{} and {} more", text, names.size() - shown));
        text += (shown++ == 0 ? "" : ", ") + Quoted(name);
    }
    return Has(text);
}

std::string RegionText(base::Region region) {
    return region.IsAbsent() ? "the file has no such region"
                             : fmt::format("not there in 0x{:X}..0x{:X} of the file", region.offset, region.End() - 1);
}

// What the file has where one line of the rule asks.
class FileValue {
public:
    FileValue(const HeuristicRule &rule, Features &features) : rule_(rule), features_(features) {}

    std::string Of(Item item, std::size_t element) {
        switch (item) {
        case Item::Traits:
            return MissingTraits();
        case Item::Header: {
            const uint16_t field = rule_.header_conditions.elements[element].field;
            const rules::Field *info = rules::FindField(rules::HeaderFields(), field);
            return info == nullptr ? kAbsent : NumberText(features_.Header(field), info->radix);
        }
        case Item::Sections:
            return SectionText(rule_.section_conditions.elements[element]);
        case Item::SectionNames:
            return SectionNameText(rule_.section_names.elements[element]);
        case Item::Strings: {
            const StringFeature &string = rule_.strings.elements[element];
            const base::Region region = features_.StringRegion(string);
            return IsStringPresent(features_.bytes(), region, string) ? "the file has it" : RegionText(region);
        }
        case Item::ImportTable: {
            const IndexedCondition &e = rule_.indexed_conditions.elements[element];
            const auto descriptors = features_.Imports().descriptors();
            if (e.index >= descriptors.size() || e.field >= pe::import_descriptor::kFieldCount)
                return kAbsent;
            return NumberText(descriptors[e.index].fields[e.field], rules::Radix::Hex);
        }
        case Item::ImportModules:
            return ImportModuleText(rule_.import_modules.elements[element].index);
        case Item::ImportFunctions:
            return Has(fmt::format("{} imported functions", features_.Imports().function_count()));
        case Item::ExportModule:
            return TextText(features_.Exports().module());
        case Item::ExportFunctions:
            return NamesText(features_.Exports().Names());
        case Item::Resources:
        case Item::ResourceTypes:
            return Has(fmt::format("{} resources", features_.Resources().resources.size()));
        case Item::ResourceStrings:
            return NamesText(features_.Strings().Candidates(rule_.resource_strings.elements[element], kMostNames));
        case Item::Measures:
            return MeasureText(rule_.measure_conditions.elements[element]);
        case Item::ObjectFields: {
            const SecondaryCondition &e = rule_.secondary_conditions.elements[element];
            const rules::Field *field = rules::FindField(rules::ObjectFields(), e.field);
            return field == nullptr ? kAbsent : NumberText(features_.Vb().ObjectValue(e.index, *field), field->radix);
        }
        case Item::ObjectNames:
            return TextText(features_.Vb().ObjectName(rule_.object_names.elements[element].index));
        case Item::MemberNames:
            return MemberText(rule_.member_names.elements[element]);
        default:
            return "";
        }
    }

private:
    std::string MissingTraits() {
        std::string missing;
        for (const rules::NamedNumber &trait : rules::TraitNames()) {
            HeuristicRule probe = rule_;
            probe.attribute_b &= trait.number;
            if (!MeetsElements(probe, Item::Traits, 0, 0, features_))
                missing += (missing.empty() ? "" : ", ") + std::string(trait.name);
        }
        return missing.empty() ? "the file has them" : "the file lacks " + missing;
    }

    std::string SectionText(const SectionCondition &e) {
        const std::optional<uint32_t> value = features_.SectionValue(e.section, e.field);
        if (!value)
            return "the file has no such section";
        return NumberText(value, rules::FindField(rules::SectionFields(), e.field)->radix);
    }

    std::string SectionNameText(const SectionNameCondition &e) {
        if (rules::IsAnySection(e.section)) {
            std::vector<std::string_view> names;
            for (const SectionHeader &section : features_.sections())
                names.push_back(SectionName(section));
            return NamesText(names);
        }
        const std::optional<std::size_t> section = features_.SectionOf(e.section);
        return section ? Has(Quoted(SectionName(features_.sections()[*section]))) : "the file has no such section";
    }

    std::string ImportModuleText(int16_t index) {
        std::vector<std::string> names;
        const auto descriptors = features_.Imports().descriptors();
        for (std::size_t i = 0; i < descriptors.size(); ++i)
            if (descriptors[i].module && (index == -1 || index == static_cast<int>(i)))
                names.push_back(*descriptors[i].module);
        return NamesText(names);
    }

    std::string MeasureText(const MeasureCondition &e) {
        if (e.value_kind == static_cast<uint8_t>(rules::Measure::Crc32))
            return NumberText(features_.Crc32(e.param_a, e.param_c, e.param_b), rules::Radix::Hex);
        const std::optional<uint32_t> entropy = features_.Entropy(e.param_a, e.param_c, e.param_b);
        return entropy ? Has(fmt::format("{}.{:03}", *entropy / 1000, *entropy % 1000)) : kAbsent;
    }

    std::string MemberText(const MemberName &e) {
        if (e.index >= rule_.object_names.count)
            return "the rule has no such object";
        const auto names = features_.Vb().MethodNames(rule_.object_names.elements[e.index].index);
        return names ? NamesText(*names) : kAbsent;
    }

    const HeuristicRule &rule_;
    Features &features_;
};

// A string that the expression mentions may be absent; the others must be there.
bool IsRequired(const HeuristicRule &rule, std::size_t string) {
    return std::string_view(rule.expression).find(static_cast<char>('A' + string)) == std::string_view::npos;
}

// A line of the rule, which may be broken into several, with its mark before and the file's value after it.
void AddLine(std::string &out, std::string_view mark, const rules::text::PrintedLine &line, const std::string &value) {
    constexpr std::size_t kTextWidth = 56;
    std::size_t indent = line.indent * rules::text::kIndent.size(); // what follows a break brings its own
    for (std::string_view rest = line.text; !rest.empty();) {
        const std::size_t end = rest.find('\n');
        const std::string text = std::string(indent, ' ') + std::string(rest.substr(0, end));
        if (end == std::string_view::npos && !value.empty())
            fmt::format_to(std::back_inserter(out), "{:<6}{:<{}}  {}\n", mark, text, kTextWidth, value);
        else
            fmt::format_to(std::back_inserter(out), "{:<6}{}\n", mark, text);
        mark = {};
        indent = 0;
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
}

// A file's value without the words before it.
std::string WithoutWords(const std::string &value) {
    constexpr std::string_view kWords = "the file has ";
    return value.starts_with(kWords) ? value.substr(kWords.size()) : value;
}

} // namespace

RuleExplanation ExplainRule(const HeuristicRule &rule, Features &features) {
    RuleExplanation explanation;
    FileValue file_value(rule, features);
    for (const rules::text::PrintedLine &line :
         rules::text::RuleLines(rules::record::ReadRule(rule, rules::record::RecordForm::Working))) {
        const bool is_item =
            line.kind == rules::text::LineKind::Item && (line.item == Item::Traits || line.item == Item::When);
        std::string_view mark;
        std::string value;
        if (is_item || line.kind == rules::text::LineKind::Row) {
            const bool is_met = MeetsElements(rule, line.item, line.first, line.count, features);
            const bool is_required = line.item != Item::Strings || IsRequired(rule, line.first);
            mark = is_met ? "ok" : is_required ? "FAIL" : "-";
            explanation.failed += !is_met && is_required ? 1 : 0;
            value = file_value.Of(line.item, line.first);
            explanation.conditions.push_back({std::string(line.text), WithoutWords(value), is_met, is_required});
        }
        AddLine(explanation.text, mark, line, value);
    }
    explanation.matches = Matches(rule, features);
    return explanation;
}

} // namespace tavrik::evaluation
