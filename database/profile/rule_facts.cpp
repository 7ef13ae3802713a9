#include <algorithm>
#include <map>
#include <string>
#include <string_view>

#include "database/profile/facts.h"
#include "database/profile/walk.h"
#include "rules/numbers.h"

namespace tavrik::profile {

namespace {

namespace field = rules::header_field;

constexpr uint32_t kDllFlag = 0x2000; // of Characteristics

std::string IdDescents(const rules::RuleSet &set) {
    std::size_t descents = 0;
    for (std::size_t i = 1; i < set.rules.size(); ++i)
        descents += set.rules[i].rule_id <= set.rules[i - 1].rule_id ? 1U : 0U;
    return Count(descents);
}

std::string IdsBelowEarlier(const rules::RuleSet &set) {
    std::size_t count = 0;
    uint32_t greatest = 0;
    for (const rules::Rule &rule : set.rules) {
        count += rule.rule_id <= greatest ? 1U : 0U;
        greatest = std::max(greatest, rule.rule_id);
    }
    return Count(count);
}

std::string RepeatedIds(const rules::RuleSet &set) {
    std::map<uint32_t, std::size_t> carriers;
    for (const rules::Rule &rule : set.rules)
        ++carriers[rule.rule_id];
    std::string text;
    for (const auto &[id, count] : carriers)
        if (count > 1)
            text += (text.empty() ? "" : ", ") + Count(id) + " by " + Count(count);
    return text;
}

// As RepeatedIds writes them.
std::string PublishedDoubleIds() {
    std::string text;
    for (const uint32_t id : kDoubleIds)
        text += (text.empty() ? "" : ", ") + Count(id) + " by 2";
    return text;
}

std::string NameOfRule(const rules::RuleSet &set, uint32_t id) {
    const auto found = std::ranges::find(set.rules, id, &rules::Rule::rule_id);
    return found != set.rules.end() ? found->detection_name : "absent";
}

bool IsPrintable(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

bool TestsCharacteristics(const rules::Rule &rule, bool with_dll_flag) {
    bool tests = false;
    for (const rules::HeaderCondition &condition : rule.header_conditions) {
        if (condition.field != field::kCharacteristics)
            continue;
        if (((condition.value & kDllFlag) != 0) != with_dll_flag)
            return false;
        tests = true;
    }
    return tests;
}

bool MentionsCharacteristics(const rules::Rule &rule, bool with_dll_flag) {
    return std::ranges::any_of(rule.header_conditions, [&](const rules::HeaderCondition &condition) {
        return condition.field == field::kCharacteristics && ((condition.value & kDllFlag) != 0) == with_dll_flag;
    });
}

} // namespace

std::vector<FactResult> RuleFacts(const rules::RuleSet &set) {
    return {
        {"rules", Count(kRules), Count(set.rules.size())},
        {"rule_id: range", Range(kFirstId, kLastId), Bounds(ValuesOfRules(set, &rules::Rule::rule_id))},
        {"rule_id: not above the one before", Count(kIdExceptions), IdDescents(set)},
        {"rule_id: below an earlier one", Count(kIdExceptions), IdsBelowEarlier(set)},
        {"rule_id: carried by several rules", PublishedDoubleIds(), RepeatedIds(set)},
        {"detection_name of rule 147", "TrojanPWS.Lolyda.AT5", NameOfRule(set, 147)},
        {"detection_name of rule 173", "Worm.Autorun.LD4", NameOfRule(set, 173)},
        {"detection_name of rule 175", "TrojanDownloader.VB.ac3", NameOfRule(set, 175)},
        {"detection_name: longest", Count(rules::kMaxDetectionName), Count(Longest(set, &rules::Rule::detection_name))},
        {"detection_name: empty or not printable ASCII", "0",
         Count(CountRules(set, [](const rules::Rule &rule) { return !IsPrintable(rule.detection_name); }))},
        {"feature_flags: stored unlike computed", Count(kDisagreeingFlags),
         Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.stored_flags != rules::ComputeFeatureFlags(rule); }))},
        {"attribute_a: values", "0..5, 8, 24, 72, 80, 144, 192", Text(ValuesOfRules(set, &rules::Rule::attribute_a))},
        {"attribute_a 1", Count(kPrograms),
         Count(CountRules(set, [](const rules::Rule &rule) { return rule.attribute_a == 1; }))},
        {"attribute_a 1: some Characteristics without the DLL flag", Count(kProgramsByCharacteristics),
         Count(CountRules(
             set,
             [](const rules::Rule &rule) { return rule.attribute_a == 1 && MentionsCharacteristics(rule, false); }))},
        {"attribute_a 1: all Characteristics without the DLL flag", Count(kProgramsByCharacteristics),
         Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 1 && TestsCharacteristics(rule, false); }))},
        {"attribute_a 0", Count(kLibraries),
         Count(CountRules(set, [](const rules::Rule &rule) { return rule.attribute_a == 0; }))},
        {"attribute_a 0: some Characteristics with the DLL flag", Count(kLibrariesByCharacteristics),
         Count(CountRules(
             set,
             [](const rules::Rule &rule) { return rule.attribute_a == 0 && MentionsCharacteristics(rule, true); }))},
        {"attribute_a 0: all Characteristics with the DLL flag", Count(kLibrariesByCharacteristics),
         Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 0 && TestsCharacteristics(rule, true); }))},
        {"attribute_b: values", "0..2, 4, 10, 16..18, 20, 32, 34, 36, 64, 192",
         Text(ValuesOfRules(set, &rules::Rule::attribute_b))},
        {"reserved: values", "0", Text(ValuesOfRules(set, &rules::Rule::reserved))},
    };
}

} // namespace tavrik::profile
