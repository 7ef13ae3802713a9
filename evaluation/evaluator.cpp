#include "evaluation/evaluator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/characters.h"
#include "evaluation/filed_rules.h"
#include "evaluation/string_search.h"
#include "evaluation/table_conditions.h"
#include "rules/expression.h"
#include "rules/lists.h"
#include "rules/names.h"

namespace tavrik::evaluation {

using rules::Item;
using rules::Operator;

namespace {

constexpr auto kEqual = static_cast<uint8_t>(Operator::Equal);

template <typename List>
auto ElementsOf(const List &list) {
    return std::span(list.elements, list.count);
}

// ---- Numbers -------------------------------------------------------------------------------------------------------

bool MeetsImportTable(std::span<const IndexedCondition> elements, Features &features) {
    return EveryRunIsMet(
        elements,
        [](const auto &left, const auto &right) { return left.index == right.index && left.field == right.field; },
        [&](const IndexedCondition &e) {
            const auto descriptors = features.Imports().descriptors();
            return e.index < descriptors.size() && e.field < pe::import_descriptor::kFieldCount &&
                   MeetsNumber(e.op, descriptors[e.index].fields[e.field], e.value);
        });
}

bool MeetsObjectFields(std::span<const SecondaryCondition> elements, Features &features) {
    return EveryRunIsMet(
        elements,
        [](const auto &left, const auto &right) { return left.index == right.index && left.field == right.field; },
        [&](const SecondaryCondition &e) {
            const rules::Field *field = rules::FindField(rules::ObjectFields(), e.field);
            return field != nullptr && MeetsValue(e.op, features.Vb().ObjectValue(e.index, *field), e.value);
        });
}

bool MeetsMeasure(const MeasureCondition &e, Features &features) {
    if (e.value_kind == static_cast<uint8_t>(rules::Measure::Crc32)) {
        uint32_t value;
        std::memcpy(&value, e.value, sizeof(value));
        return MeetsValue(e.op, features.Crc32(e.param_a, e.param_c, e.param_b), value);
    }
    double value;
    std::memcpy(&value, e.value, sizeof(value));
    if (e.value_kind != static_cast<uint8_t>(rules::Measure::Entropy) || !std::isfinite(value) ||
        e.op == static_cast<uint8_t>(Operator::HasBits))
        return false;
    return MeetsValue(e.op, features.Entropy(e.param_a, e.param_c, e.param_b), rules::EntropyThousandths(value));
}

bool MeetsMeasures(std::span<const MeasureCondition> elements, Features &features) {
    return EveryRunIsMet(
        elements,
        [](const auto &left, const auto &right) {
            return left.param_a == right.param_a && left.value_kind == right.value_kind &&
                   left.param_b == right.param_b && left.param_c == right.param_c;
        },
        [&](const MeasureCondition &e) { return MeetsMeasure(e, features); });
}

// ---- Names ---------------------------------------------------------------------------------------------------------

// Whether the file's name meets the rule's under the bits of `option`.
bool IsNamed(std::string_view name, std::string_view wanted, uint8_t option) {
    if ((option & rules::kNamePrefix) != 0)
        name = name.substr(0, wanted.size());
    return (option & rules::kNameCased) != 0 ? name == wanted : base::IsEqualIgnoringCase(name, wanted);
}

// For the name of one thing, which may be absent.
template <typename Name, typename IsWanted>
bool MeetsName(uint8_t op, const std::optional<Name> &name, IsWanted is_wanted) {
    return name && MeetsPresence(op, is_wanted(*name));
}

// ---- Imports and exports -------------------------------------------------------------------------------------------

bool IsModule(const ImportModule &e, std::size_t position, const pe::ImportTable::Descriptor &descriptor) {
    return (e.index == -1 || e.index == static_cast<int>(position)) && descriptor.module &&
           IsNamed(*descriptor.module, e.name, e.option);
}

bool MeetsImportModule(const ImportModule &e, Features &features) {
    const auto descriptors = features.Imports().descriptors();
    if (e.index != -1) {
        const auto position = static_cast<std::size_t>(e.index);
        return e.index >= 0 && position < descriptors.size() &&
               MeetsName(e.op, descriptors[position].module,
                         [&](const std::string &name) { return IsNamed(name, e.name, e.option); });
    }
    bool is_there = false;
    for (std::size_t i = 0; i < descriptors.size() && !is_there; ++i)
        is_there = IsModule(e, i, descriptors[i]);
    return MeetsPresence(e.op, is_there);
}

bool MeetsImportFunction(const ImportFunction &e, std::span<const ImportModule> modules, Features &features) {
    const ImportModule *module =
        e.index < modules.size() && modules[e.index].op == kEqual ? &modules[e.index] : nullptr;
    pe::ImportTable &imports = features.Imports();
    const std::string name = e.name;
    bool is_there = false;
    for (std::size_t i = 0; i < imports.descriptors().size() && !is_there; ++i)
        is_there = (module == nullptr || IsModule(*module, i, imports.descriptors()[i])) &&
                   imports.FunctionsOf(i).contains(name);
    return MeetsPresence(e.op, is_there);
}

bool MeetsExportModule(const ExportName &e, Features &features) {
    const std::optional<std::string> &module = features.Exports().module();
    return MeetsPresence(e.op, module && base::IsEqualIgnoringCase(*module, e.name));
}

// ---- Visual Basic --------------------------------------------------------------------------------------------------

bool MeetsObjectName(const ObjectName &e, Features &features) {
    return MeetsName(e.op, features.Vb().ObjectName(e.index),
                     [&](const std::string &name) { return IsNamed(name, e.name, e.option); });
}

bool MeetsMemberName(const MemberName &e, std::span<const ObjectName> objects, Features &features) {
    if (e.index >= objects.size())
        return false;
    return MeetsName(
        e.op, features.Vb().MethodNames(objects[e.index].index), [&](const std::vector<std::string> &methods) {
            return std::any_of(methods.begin(), methods.end(),
                               [&](const std::string &method) { return IsNamed(method, e.name, e.option); });
        });
}

// ---- Resources -----------------------------------------------------------------------------------------------------

bool MeetsResource(const ResourceEntry &e, Features &features) {
    const std::vector<pe::Resource> &resources = features.Resources().resources;
    for (std::size_t i = 0; i < resources.size(); ++i)
        if (IsResourceSelected(e, resources[i]) && (e.value == 0 || features.ResourceCrc32(i) == uint32_t{e.value}))
            return true;
    return false;
}

// ---- Strings -------------------------------------------------------------------------------------------------------

using IsPresent = std::function<bool(std::size_t)>;

// The strings of one rule, each looked for at most once.
class StringAnswers {
public:
    StringAnswers(std::size_t count, const IsPresent &is_present)
        : count_(std::min(count, rules::kMaxStrings)), is_present_(is_present) {}

    bool IsThere(std::size_t string) {
        if (string >= count_)
            return false;
        if (!answers_[string])
            answers_[string] = is_present_(string);
        return *answers_[string];
    }

private:
    std::size_t count_;
    const IsPresent &is_present_;
    std::array<std::optional<bool>, rules::kMaxStrings> answers_ = {};
};

// Looks for the strings of a rule in a file.
IsPresent LookFor(const HeuristicRule &rule, Features &features) {
    return [&](std::size_t string) {
        const StringFeature &e = rule.strings.elements[string];
        return IsStringPresent(features.bytes(), features.StringRegion(e), e);
    };
}

// Evaluates an expression that CheckExpression accepts, from left to right with the pending operations on a stack.
class ExpressionReader {
public:
    bool IsTrue(std::string_view expression, StringAnswers &answers) {
        bool value = false;
        for (const char c : expression) {
            if (c == '(') {
                pending_.push_back({});
            } else if (c == '&' || c == '|') {
                pending_.back() = {c, value};
            } else if (c == ')') {
                const Pending &pending = pending_.back();
                value = pending.operation == '&' ? pending.left && value : pending.left || value;
                pending_.pop_back();
            } else if (c != ' ') {
                value = answers.IsThere(static_cast<std::size_t>(c - 'A'));
            }
        }
        return value;
    }

private:
    struct Pending {
        char operation = 0;
        bool left = false;
    };

    std::vector<Pending> pending_;
};

bool IsExpressionMet(const HeuristicRule &rule, StringAnswers &answers) {
    const std::string_view expression = rule.expression;
    // A foreign letter is a false one, so every letter has a string here.
    return !rules::CheckExpression(expression, rules::kMaxStrings) && ExpressionReader().IsTrue(expression, answers);
}

// A list whose elements are conditions on their own.
template <typename Element, typename IsMet>
bool EachIsMet(std::span<const Element> elements, IsMet is_met) {
    return std::all_of(elements.begin(), elements.end(), is_met);
}

} // namespace

bool MeetsElements(const HeuristicRule &rule, Item item, std::size_t first, std::size_t count, Features &features) {
    const auto part = [=](const auto &list) { return ElementsOf(list).subspan(first, count); };
    switch (item) {
    case Item::Traits:
        return HasTraits(rule.attribute_b, features);
    case Item::Header:
        return MeetsHeader(part(rule.header_conditions), features);
    case Item::Sections:
        return MeetsSections(part(rule.section_conditions), features);
    case Item::SectionNames:
        return MeetsSectionNames(part(rule.section_names), features);
    case Item::Strings:
        return EachIsMet(part(rule.strings), [&](const StringFeature &e) {
            return IsStringPresent(features.bytes(), features.StringRegion(e), e);
        });
    case Item::When: {
        const IsPresent is_present = LookFor(rule, features);
        StringAnswers answers(rule.strings.count, is_present);
        return IsExpressionMet(rule, answers);
    }
    case Item::ImportTable:
        return MeetsImportTable(part(rule.indexed_conditions), features);
    case Item::ImportModules:
        return EachIsMet(part(rule.import_modules),
                         [&](const ImportModule &e) { return MeetsImportModule(e, features); });
    case Item::ImportFunctions:
        return EachIsMet(part(rule.import_functions), [&](const ImportFunction &e) {
            return MeetsImportFunction(e, ElementsOf(rule.import_modules), features);
        });
    case Item::ExportModule:
        return EachIsMet(part(rule.export_module_names),
                         [&](const ExportName &e) { return MeetsExportModule(e, features); });
    case Item::ExportFunctions:
        return EachIsMet(part(rule.export_functions), [&](const ExportName &e) {
            return MeetsPresence(e.op, features.Exports().Names().contains(e.name));
        });
    case Item::Resources:
        return EachIsMet(part(rule.resource_entries),
                         [&](const ResourceEntry &e) { return MeetsResource(e, features); });
    case Item::ResourceTypes:
        return EachIsMet(part(rule.resource_type_entries),
                         [&](const ResourceTypeEntry &e) { return IsResourceTypeMet(e, features.Resources()); });
    case Item::ResourceStrings:
        return EachIsMet(part(rule.resource_strings),
                         [&](const ResourceString &e) { return features.Strings().IsMet(e); });
    case Item::Measures:
        return MeetsMeasures(part(rule.measure_conditions), features);
    case Item::ObjectFields:
        return MeetsObjectFields(part(rule.secondary_conditions), features);
    case Item::ObjectNames:
        return EachIsMet(part(rule.object_names), [&](const ObjectName &e) { return MeetsObjectName(e, features); });
    case Item::MemberNames:
        return EachIsMet(part(rule.member_names), [&](const MemberName &e) {
            return MeetsMemberName(e, ElementsOf(rule.object_names), features);
        });
    default:
        return true; // items that ask nothing
    }
}

bool AsksSomething(const HeuristicRule &rule) {
    bool asks = rule.attribute_b != 0 || rule.expression[0] != '\0';
    rules::EachList([&](auto, const auto &list) { asks = asks || list.count != 0; }, rule);
    return asks;
}

bool MeetsHeadersRead(const HeuristicRule &rule, Features &features) {
    return EveryRunIsMet(
        ElementsOf(rule.header_conditions),
        [](const auto &left, const auto &right) { return left.field == right.field; },
        [&](const HeaderCondition &e) {
            return !IsReadWithHeaders(e.field) || MeetsValue(e.op, features.Header(e.field), e.value);
        });
}

bool MeetsStructure(const HeuristicRule &rule, Features &features) {
    // Most rules end at their first header conditions.
    if (!MeetsHeader(ElementsOf(rule.header_conditions), features))
        return false;
    const auto meets = [&](Item item, const auto &list) {
        return list.count == 0 || MeetsElements(rule, item, 0, list.count, features);
    };
    // From the cheap to the expensive. The section table has been read with the headers; a trait may need the imports.
    return meets(Item::Sections, rule.section_conditions) && meets(Item::SectionNames, rule.section_names) &&
           HasTraits(rule.attribute_b, features) && meets(Item::ImportTable, rule.indexed_conditions) &&
           meets(Item::ImportModules, rule.import_modules) && meets(Item::ImportFunctions, rule.import_functions) &&
           meets(Item::ExportModule, rule.export_module_names) && meets(Item::ExportFunctions, rule.export_functions) &&
           meets(Item::ResourceTypes, rule.resource_type_entries) && meets(Item::Resources, rule.resource_entries) &&
           meets(Item::ResourceStrings, rule.resource_strings) &&
           meets(Item::ObjectFields, rule.secondary_conditions) && meets(Item::ObjectNames, rule.object_names) &&
           meets(Item::MemberNames, rule.member_names) && meets(Item::Measures, rule.measure_conditions);
}

bool MeetsStrings(const HeuristicRule &rule, const IsPresent &is_present) {
    StringAnswers answers(rule.strings.count, is_present);
    const rules::LetterSet mentioned = rules::LettersOf(rule.expression);
    for (std::size_t i = 0; i < rule.strings.count; ++i)
        if ((mentioned >> i & 1) == 0 && !answers.IsThere(i))
            return false;
    return rule.expression[0] == '\0' || IsExpressionMet(rule, answers);
}

bool MeetsStrings(const HeuristicRule &rule, Features &features) {
    return MeetsStrings(rule, LookFor(rule, features));
}

bool Matches(const HeuristicRule &rule, Features &features) {
    return features.IsPe() && MeetsStructure(rule, features) && AsksSomething(rule) && MeetsStrings(rule, features);
}

} // namespace tavrik::evaluation
