#include <algorithm>
#include <bit>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>

#include "database/profile/facts.h"
#include "database/profile/walk.h"
#include "rules/expression.h"

namespace tavrik::profile {

namespace {

using rules::Item;

bool IsNamedKind(const rules::StringFeature &string) {
    return rules::ForwardKind(string.kind) == static_cast<uint8_t>(rules::StringKind::NamedSection);
}

bool IsIndexedKind(const rules::StringFeature &string) {
    return rules::ForwardKind(string.kind) == static_cast<uint8_t>(rules::StringKind::IndexedSection);
}

bool MaskFits(const rules::StringFeature &string) {
    for (std::size_t i = string.bytes.size(); i < rules::kMaxStringLength; ++i)
        if (string.mask[i])
            return false;
    return true;
}

bool IsBlockMultiple(uint16_t value) {
    return value % 256 == 0;
}

std::size_t StringCount(const rules::RuleSet &set, bool (*matches)(const rules::StringFeature &)) {
    return CountOf(set, &rules::Rule::strings, matches);
}

std::size_t StringElements(const rules::RuleSet &set) {
    return CountAll(set, &rules::Rule::strings);
}

bool HasExpression(const rules::Rule &rule) {
    return !rule.expression.empty();
}

// Whether it cannot be evaluated, or its letters have a gap; strings are counted elsewhere.
bool IsMalformed(const rules::Rule &rule) {
    return HasExpression(rule) && rules::CheckExpression(rule.expression, rules::kMaxStrings).has_value();
}

std::size_t LetterCount(const rules::Rule &rule) {
    return static_cast<std::size_t>(std::popcount(rules::LettersOf(rule.expression)));
}

std::set<std::string> DistinctExpressions(const rules::RuleSet &set) {
    std::set<std::string> distinct;
    for (const rules::Rule &rule : set.rules)
        if (HasExpression(rule))
            distinct.insert(rule.expression);
    return distinct;
}

std::string Examples(const rules::RuleSet &set, std::initializer_list<std::string_view> expressions) {
    const std::set<std::string> distinct = DistinctExpressions(set);
    return Present(
        std::ranges::all_of(expressions, [&](std::string_view text) { return distinct.contains(std::string(text)); }));
}

std::string LargestLetter(const rules::RuleSet &set) {
    rules::LetterSet letters = 0;
    for (const rules::Rule &rule : set.rules)
        letters |= rules::LettersOf(rule.expression);
    return std::string(1, static_cast<char>('A' - 1 + std::bit_width(letters)));
}

} // namespace

std::vector<FactResult> StringFacts(const rules::RuleSet &set) {
    return {
        {"strings: length", Range(1, rules::kMaxStringLength),
         Bounds(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.bytes.size(); }))},
        {"strings: mask bits at or beyond the length", "0",
         Count(StringCount(set, [](const rules::StringFeature &s) { return !MaskFits(s); }))},
        {"strings: with mask bits", "some",
         Some(StringCount(set, [](const rules::StringFeature &s) { return s.mask.any(); }), StringElements(set))},
        {"strings: param_a at or beyond the length", "0",
         Count(StringCount(set, [](const rules::StringFeature &s) { return s.anchor >= s.bytes.size(); }))},
        {"strings: param_b 0 or a multiple of 256", "most",
         Most(StringCount(set, [](const rules::StringFeature &s) { return IsBlockMultiple(s.window_start); }),
              StringElements(set))},
        {"strings: param_b neither", "some",
         Some(StringCount(set, [](const rules::StringFeature &s) { return !IsBlockMultiple(s.window_start); }),
              StringElements(set))},
        {"strings: param_b", "0..65520",
         Bounds(ValuesOf(set, &rules::Rule::strings, &rules::StringFeature::window_start))},
        {"strings: string_kind", Range(1, rules::kMaxStringKind),
         Text(ValuesOf(set, &rules::Rule::strings, &rules::StringFeature::kind))},
        {"strings: string_kind 17", "most",
         Most(StringCount(set, [](const rules::StringFeature &s) { return s.kind == 17; }), StringElements(set))},
        {"strings: param_d", "0..20", Text(ValuesOf(set, &rules::Rule::strings, &rules::StringFeature::index))},
        {"strings: param_d not 0 outside kinds 17, 18 and 23", "0",
         Count(StringCount(
             set, [](const rules::StringFeature &s) { return s.index != 0 && !IsIndexedKind(s) && s.kind != 23; }))},
        {"strings: param_d not 0 in kind 23", "1",
         Count(StringCount(set, [](const rules::StringFeature &s) { return s.index != 0 && s.kind == 23; }))},
        {"strings: with a string_section", OutOf(kNamedSectionStrings, ProfileOf(Item::Strings).elements),
         OutOf(StringCount(set, [](const rules::StringFeature &s) { return !s.section_name.empty(); }),
               StringElements(set))},
        {"strings: string_section in other kinds than 15 and 16, or missing there", "0",
         Count(
             StringCount(set, [](const rules::StringFeature &s) { return s.section_name.empty() == IsNamedKind(s); }))},
        {"strings: string_section_length", "0, 4..8",
         Text(ValuesOf(set, &rules::Rule::strings,
                       [](const rules::StringFeature &s) { return s.section_name.size(); }))},
        {"strings: string_section with bytes after the name", Count(kSectionTails),
         Count(StringCount(set, [](const rules::StringFeature &s) { return !s.section_tail.empty(); }))},
        {"strings: string_section \".data\"", "present",
         Present(StringCount(set, [](const rules::StringFeature &s) { return s.section_name == ".data"; }) > 0)},
        {"strings: param_e", "0..3", Text(ValuesOf(set, &rules::Rule::strings, &rules::StringFeature::options))},
        {"strings: param_f", "0..4096", Bounds(ValuesOf(set, &rules::Rule::strings, &rules::StringFeature::drift))},
        {"strings: param_f multiple of 256", "most",
         Most(StringCount(set, [](const rules::StringFeature &s) { return IsBlockMultiple(s.drift); }),
              StringElements(set))},
        {"strings: param_f above 0 and multiple of 256", "most",
         Most(StringCount(set, [](const rules::StringFeature &s) { return s.drift != 0 && IsBlockMultiple(s.drift); }),
              StringCount(set, [](const rules::StringFeature &s) { return s.drift != 0; }))},
        {"expression: rules with one", Count(kExpressions), Count(CountRules(set, HasExpression))},
        {"expression: rules without", Count(kRules - kExpressions),
         Count(set.rules.size() - CountRules(set, HasExpression))},
        {"expression: distinct", Count(kDistinctExpressions), Count(DistinctExpressions(set).size())},
        {"expression: longest", "49", Count(Longest(set, &rules::Rule::expression))},
        {"expression: malformed, or with a gap in its letters", "0", Count(CountRules(set, IsMalformed))},
        {"expression: largest letter", "M", LargestLetter(set)},
        {"expression: as many letters as strings", Count(kExpressionsOverAll),
         Count(CountRules(
             set,
             [](const rules::Rule &rule) { return HasExpression(rule) && LetterCount(rule) == rule.strings.size(); }))},
        {"expression: more letters than strings", "0",
         Count(CountRules(set, [](const rules::Rule &rule) { return LetterCount(rule) > rule.strings.size(); }))},
        {"expression: the examples", "present",
         Examples(set, {"((A|B)&C)", "(A&(B|C))", "((A|B)&(C|D))", "(((A|B)&(C|D))&(E|F))"})},
        {"expression: the short form and the spaced one", "present", Examples(set, {"(A|B)", "(A &((B|C)|D))"})},
    };
}

} // namespace tavrik::profile
