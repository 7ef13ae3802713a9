#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <string_view>

#include "database/profile/facts.h"
#include "database/profile/walk.h"
#include "rules/lists.h"
#include "rules/numbers.h"

namespace tavrik::profile {

namespace {

namespace field = rules::header_field;

// Calls visit(op) for the operator of every element of every list that has one, or of those with names.
template <typename Visit>
void EachOperator(const rules::RuleSet &set, bool with_names_only, Visit visit) {
    const auto visit_list = [&](auto, const auto &list) {
        if constexpr (requires { list.front().op; }) {
            constexpr bool kHasNames = requires {
                list.front().name;
            };
            for (const auto &element : list)
                if (kHasNames || !with_names_only)
                    visit(element.op);
        }
    };
    for (const rules::Rule &rule : set.rules)
        rules::EachList(visit_list, rule);
}

Values AllOperators(const rules::RuleSet &set, bool with_names_only = false) {
    Values values;
    EachOperator(set, with_names_only, [&](rules::Operator op) { values.insert(static_cast<int64_t>(op)); });
    return values;
}

std::size_t Operators(const rules::RuleSet &set, const Values &codes) {
    std::size_t count = 0;
    EachOperator(set, false, [&](rules::Operator op) { count += codes.count(static_cast<int64_t>(op)); });
    return count;
}

// A bound of a value within one rule. The key says which value; `amount` orders like the value itself.
struct Bound {
    std::array<uint64_t, 4> key;
    rules::Operator op;
    uint64_t amount;
};

// Bounds of one list that are not a pair: a lower bound directly followed by a higher one on the same value, once for
// each value.
std::size_t UnpairedBounds(const std::vector<Bound> &bounds) {
    std::size_t unpaired = 0;
    std::set<std::array<uint64_t, 4>> seen;
    for (std::size_t i = 0; i < bounds.size(); ++i) {
        if (bounds[i].op != rules::Operator::AtLeast && bounds[i].op != rules::Operator::AtMost)
            continue;
        const bool is_pair = bounds[i].op == rules::Operator::AtLeast && i + 1 < bounds.size() &&
                             bounds[i + 1].op == rules::Operator::AtMost && bounds[i + 1].key == bounds[i].key &&
                             bounds[i].amount < bounds[i + 1].amount && seen.insert(bounds[i].key).second;
        if (is_pair)
            ++i;
        else
            ++unpaired;
    }
    return unpaired;
}

template <typename Element, typename ToBound>
std::size_t UnpairedBounds(const std::vector<Element> &list, ToBound to_bound) {
    std::vector<Bound> bounds;
    std::transform(list.begin(), list.end(), std::back_inserter(bounds), to_bound);
    return UnpairedBounds(bounds);
}

std::size_t UnpairedBounds(const rules::Rule &rule) {
    std::size_t count = UnpairedBounds(rule.header_conditions, [](const rules::HeaderCondition &condition) {
        return Bound{{condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.section_conditions, [](const rules::SectionCondition &condition) {
        return Bound{{condition.section, condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.indexed_conditions, [](const rules::IndexedCondition &condition) {
        return Bound{{condition.index, condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.secondary_conditions, [](const rules::SecondaryCondition &condition) {
        return Bound{{condition.index, condition.field}, condition.op, condition.value};
    });
    // The bits of doubles that are not negative order like the doubles.
    count += UnpairedBounds(rule.measure_conditions, [](const rules::MeasureCondition &condition) {
        return Bound{{condition.region, static_cast<uint64_t>(condition.measure), condition.length, condition.index},
                     condition.op,
                     condition.bits};
    });
    return count;
}

std::size_t UnpairedBounds(const rules::RuleSet &set) {
    std::size_t count = 0;
    for (const rules::Rule &rule : set.rules)
        count += UnpairedBounds(rule);
    return count;
}

std::string FieldValue(const rules::RuleSet &set, uint16_t field, uint32_t value) {
    const auto tests = [&](const rules::HeaderCondition &condition) { return condition.field == field; };
    return OutOf(
        CountOf(set, &rules::Rule::header_conditions,
                [&](const rules::HeaderCondition &condition) { return tests(condition) && condition.value == value; }),
        CountOf(set, &rules::Rule::header_conditions, tests));
}

Frequencies HeaderValues(const rules::RuleSet &set, uint16_t field) {
    Frequencies counts;
    Each(set, &rules::Rule::header_conditions, [&](const rules::HeaderCondition &condition) {
        if (condition.field == field)
            ++counts[condition.value];
    });
    return counts;
}

// Flag tests on values that are no flag words: Characteristics of files and sections, DllCharacteristics, ObjectType.
std::size_t OddFlagTests(const rules::RuleSet &set) {
    const auto has = [](const auto &condition) { return condition.op == rules::Operator::HasBits; };
    return CountOf(set, &rules::Rule::header_conditions,
                   [&](const rules::HeaderCondition &condition) {
                       return has(condition) && condition.field != field::kCharacteristics &&
                              condition.field != field::kDllCharacteristics;
                   }) +
           CountOf(set, &rules::Rule::section_conditions,
                   [&](const rules::SectionCondition &condition) {
                       return has(condition) && condition.field != rules::section_field::kCharacteristics;
                   }) +
           CountOf(set, &rules::Rule::indexed_conditions, has);
}

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

} // namespace

std::vector<FactResult> StructureFacts(const rules::RuleSet &set) {
    return {
        {"op: values", "1..7", Text(AllOperators(set))},
        {"op: values with names", "1", Text(AllOperators(set, true))},
        {"op 1", "most", Most(Operators(set, {1}), Operators(set, {1, 2, 3, 4, 5, 6, 7}))},
        {"op 2, 3 and 4", "rare", Rare(Operators(set, {2, 3, 4}), Operators(set, {1, 2, 3, 4, 5, 6, 7}))},
        {"op 6 and 5: not a lower bound before a higher one", "0", Count(UnpairedBounds(set))},
        {"op 7: on other values than flag words", "0", Count(OddFlagTests(set))},
        {"op 7 with 0x10F on Characteristics", "present",
         Present(CountOf(set, &rules::Rule::header_conditions,
                         [](const rules::HeaderCondition &condition) {
                             return condition.field == field::kCharacteristics &&
                                    condition.op == rules::Operator::HasBits && condition.value == 0x10F;
                         }) > 0)},
        {"op 7 with 0x60000020 on section Characteristics", "present",
         Present(CountOf(set, &rules::Rule::section_conditions,
                         [](const rules::SectionCondition &condition) {
                             return condition.field == rules::section_field::kCharacteristics &&
                                    condition.op == rules::Operator::HasBits && condition.value == 0x60000020;
                         }) > 0)},
        {"header_conditions: fields", "0..263",
         Text(ValuesOf(set, &rules::Rule::header_conditions, &rules::HeaderCondition::field))},
        {"header_conditions: values of field 119", "0x21354256", HexList(HeaderValues(set, 119))},
        {"header_conditions: most frequent value of field 122", "1033", ByFrequency(HeaderValues(set, 122), 1)},
        {"header_conditions: field 129 with value 1", OutOf(kVbThreadCountsOne, kVbThreadCounts),
         FieldValue(set, 129, 1)},
        {"header_conditions: field 140 with value 500", OutOf(kVbVersions500, kVbVersions), FieldValue(set, 140, 500)},
        {"section_conditions: selectors", "0..33, 600..610",
         Text(ValuesOf(set, &rules::Rule::section_conditions, &rules::SectionCondition::section))},
        {"section_conditions: fields", "1..9",
         Text(ValuesOf(set, &rules::Rule::section_conditions, &rules::SectionCondition::field))},
        {"section_conditions: fields 5 to 8", "rare",
         Rare(CountOf(set, &rules::Rule::section_conditions,
                      [](const rules::SectionCondition &c) { return c.field >= 5 && c.field <= 8; }),
              CountAll(set, &rules::Rule::section_conditions))},
        {"section_names: selectors", "0..33, 505..507, 600..610",
         Text(ValuesOf(set, &rules::Rule::section_names, &rules::SectionNameCondition::section))},
        {"section_names: lengths", Range(0, rules::kMaxSectionName),
         Bounds(ValuesOf(set, &rules::Rule::section_names,
                         [](const rules::SectionNameCondition &c) { return c.name.size(); }))},
        {"section_names: empty", Count(kEmptySectionNames),
         Count(CountOf(set, &rules::Rule::section_names,
                       [](const rules::SectionNameCondition &c) { return c.name.empty(); }))},
        {"section_names: not ASCII", "0",
         Count(CountOf(set, &rules::Rule::section_names,
                       [](const rules::SectionNameCondition &c) { return !IsAscii(c.name); }))},
        {"section_names: .text, .rsrc, UPX0", "present",
         Present(HasName(set, &rules::Rule::section_names, ".text") &&
                 HasName(set, &rules::Rule::section_names, ".rsrc") &&
                 HasName(set, &rules::Rule::section_names, "UPX0"))},
    };
}

} // namespace tavrik::profile
