#include "database/generator/generator.h"

#include <stdexcept>

#include "database/generator/extract.h"
#include "database/generator/specimen.h"
#include "database/generator/written.h"

namespace tavrik::generator {

void FailShort(const RulePlan &plan, std::string_view what) {
    throw std::logic_error("rule " + std::to_string(plan.rule_id) + " \"" + plan.detection_name +
                           "\": its specimen has too few " + std::string(what));
}

rules::Rule ExtractRule(const RulePlan &plan, const Specimen &specimen) {
    const ImageFacts facts(specimen.image);
    Random random(Mix(plan.seed) ^ 0x65787472);
    const Source source = {plan, specimen, facts, random};
    rules::Rule rule;
    rule.rule_id = plan.rule_id;
    rule.detection_name = plan.detection_name;
    rule.attribute_a = plan.archetype->target;
    rule.attribute_b = plan.traits;
    rule.expression = plan.expression;
    ExtractHeaders(source, rule);
    ExtractSections(source, rule);
    ExtractStrings(source, rule);
    ExtractTables(source, rule);
    ExtractMeasures(source, rule);
    ExtractObjects(source, rule);
    rule.stored_flags = rules::ComputeFeatureFlags(rule);
    if (plan.is_stale) // as it was before the last list came to the rule
        rule.stored_flags = rule.stored_flags == 3 ? 1 : 0;
    return rule;
}

rules::RuleSet Generator::Rules() const {
    rules::RuleSet set;
    set.rules.reserve(slots_.size());
    for (const Slot &slot : slots_)
        set.rules.push_back(slot.written != nullptr ? *slot.written : ExtractRule(slot.plan, MakeSpecimen(slot.plan)));
    return set;
}

uint32_t Generator::RuleId(std::size_t place) const {
    const Slot &slot = slots_.at(place);
    return slot.written != nullptr ? slot.written->rule_id : slot.plan.rule_id;
}

const std::string &Generator::RuleName(std::size_t place) const {
    const Slot &slot = slots_.at(place);
    return slot.written != nullptr ? slot.written->detection_name : slot.plan.detection_name;
}

std::optional<std::vector<uint8_t>> Generator::SpecimenImage(std::size_t place) const {
    const Slot &slot = slots_.at(place);
    if (slot.written == nullptr)
        return MakeSpecimen(slot.plan).image;
    const std::optional<RulePlan> plan = WrittenPlan(slot.written->rule_id);
    return plan ? std::optional(MakeSpecimen(*plan).image) : std::nullopt;
}

} // namespace tavrik::generator
