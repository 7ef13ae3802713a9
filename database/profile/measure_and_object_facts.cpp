#include "database/profile/facts.h"
#include "database/profile/walk.h"

namespace tavrik::profile {

namespace {

using rules::Item;

std::size_t OddMeasures(const rules::RuleSet &set) {
    constexpr double kGreatestEntropy = 8.0;
    return CountOf(set, &rules::Rule::measure_conditions, [](const rules::MeasureCondition &condition) {
        if (condition.measure == rules::Measure::Crc32)
            return condition.bits > UINT32_MAX;
        const double entropy = rules::MeasureEntropy(condition);
        return !(entropy > 0 && entropy < kGreatestEntropy);
    });
}

std::size_t MembersWithoutObject(const rules::RuleSet &set) {
    std::size_t count = 0;
    for (const rules::Rule &rule : set.rules)
        for (const rules::MemberName &member : rule.member_names)
            count += member.index >= rule.object_names.size() ? 1U : 0U;
    return count;
}

} // namespace

std::vector<FactResult> MeasureAndObjectFacts(const rules::RuleSet &set) {
    return {
        {"measure_conditions: param_a 60", OutOf(kIndexedSectionMeasures, ProfileOf(Item::Measures).elements),
         OutOf(CountOf(set, &rules::Rule::measure_conditions,
                       [](const rules::MeasureCondition &m) { return m.region == 60; }),
               CountAll(set, &rules::Rule::measure_conditions))},
        {"measure_conditions: value_kind", "1, 2",
         Text(ValuesOf(set, &rules::Rule::measure_conditions, &rules::MeasureCondition::measure))},
        {"measure_conditions: op", "1, 4..6", Text(OperatorsOf(set, &rules::Rule::measure_conditions))},
        {"measure_conditions: values out of range", "0", Count(OddMeasures(set))},
        {"secondary_conditions: index", "0..39",
         Text(ValuesOf(set, &rules::Rule::secondary_conditions, &rules::SecondaryCondition::index))},
        {"secondary_conditions: field", "0..43",
         Text(ValuesOf(set, &rules::Rule::secondary_conditions, &rules::SecondaryCondition::field))},
        {"secondary_conditions: op", "1, 5, 6", Text(OperatorsOf(set, &rules::Rule::secondary_conditions))},
        {"object_names: index", "0..24", Bounds(ValuesOf(set, &rules::Rule::object_names, &rules::ObjectName::index))},
        {"object_names: option", "0, 1", Text(ValuesOf(set, &rules::Rule::object_names, &rules::ObjectName::option))},
        {"object_names: Form1, frmMain", "present",
         Present(HasName(set, &rules::Rule::object_names, "Form1") &&
                 HasName(set, &rules::Rule::object_names, "frmMain"))},
        {"member_names: index at or beyond the object_names", "0", Count(MembersWithoutObject(set))},
        {"member_names: option", "0, 3", Text(ValuesOf(set, &rules::Rule::member_names, &rules::MemberName::option))},
        {"member_names: Form_Load, DecryptString", "present",
         Present(HasName(set, &rules::Rule::member_names, "Form_Load") &&
                 HasName(set, &rules::Rule::member_names, "DecryptString"))},
    };
}

} // namespace tavrik::profile
