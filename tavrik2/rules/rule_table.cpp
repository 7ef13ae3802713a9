// The cleanable rules by identifier and name; they list no features.

#include "tavrik2/rules/database.h"

namespace tavrik2 {
namespace {

template <uint32_t Size>
consteval HeuristicRule NamedRule(uint32_t rule_id, const char (&detection_name)[Size]) {
    HeuristicRule rule{};
    static_assert(Size <= sizeof rule.detection_name);
    rule.expression = "";
    rule.rule_id = rule_id;
    for (uint32_t index = 0; index < Size; ++index)
        rule.detection_name[index] = detection_name[index];
    return rule;
}

alignas(16) constinit HeuristicRule g_rule147 = NamedRule(147, "TrojanPWS.Lolyda.AT5");
alignas(16) constinit HeuristicRule g_rule173 = NamedRule(173, "Worm.Autorun.LD4");
alignas(16) constinit HeuristicRule g_rule175 = NamedRule(175, "TrojanDownloader.VB.ac3");

} // namespace

extern "C" {

constinit HeuristicRule *const RuleTable[] = {&g_rule147, &g_rule173, &g_rule175};
constinit const uint32_t RuleTableCount = sizeof RuleTable / sizeof RuleTable[0];

} // extern "C"

} // namespace tavrik2
