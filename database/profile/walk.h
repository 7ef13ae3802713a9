/* Walks through the elements of all rules of a set, for the facts of the profile. */
#ifndef TAVRIK_DATABASE_PROFILE_WALK_H
#define TAVRIK_DATABASE_PROFILE_WALK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "database/profile/answers.h"
#include "rules/model.h"

namespace tavrik::profile {

/** Calls visit(element) for the elements of one list of all rules. */
template <typename Element, typename Visit>
void Each(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Visit visit) {
    for (const rules::Rule &rule : set.rules)
        for (const Element &element : rule.*list)
            visit(element);
}

/** The elements of one list that match. */
template <typename Element, typename Matches>
std::size_t CountOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Matches matches) {
    std::size_t count = 0;
    Each(set, list, [&](const Element &element) { count += std::invoke(matches, element) ? 1U : 0U; });
    return count;
}

/** All elements of one list. */
template <typename Element>
std::size_t CountAll(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list) {
    return CountOf(set, list, [](const Element &) { return true; });
}

/** What the elements of one list have for a value; `get` is a member or a function. */
template <typename Element, typename Get>
Values ValuesOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Get get) {
    Values values;
    Each(set, list, [&](const Element &element) { values.insert(static_cast<int64_t>(std::invoke(get, element))); });
    return values;
}

/** What the rules have for a value. */
template <typename Get>
Values ValuesOfRules(const rules::RuleSet &set, Get get) {
    Values values;
    for (const rules::Rule &rule : set.rules)
        values.insert(static_cast<int64_t>(std::invoke(get, rule)));
    return values;
}

/** The rules that match. */
template <typename Matches>
std::size_t CountRules(const rules::RuleSet &set, Matches matches) {
    return static_cast<std::size_t>(std::count_if(set.rules.begin(), set.rules.end(), matches));
}

/** Whether an element of a list has a name. */
template <typename Element>
bool HasName(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, std::string_view name) {
    return CountOf(set, list, [&](const Element &element) { return element.name == name; }) > 0;
}

/** The operators in a list. */
template <typename Element>
Values OperatorsOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list) {
    return ValuesOf(set, list, [](const Element &element) { return static_cast<int>(element.op); });
}

/** How often each value occurs. */
template <typename Element, typename Get>
Frequencies FrequenciesOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Get get) {
    Frequencies counts;
    Each(set, list, [&](const Element &element) { ++counts[std::invoke(get, element)]; });
    return counts;
}

/** The longest of a text that every rule has. */
inline std::size_t Longest(const rules::RuleSet &set, std::string rules::Rule::*text) {
    std::size_t longest = 0;
    for (const rules::Rule &rule : set.rules)
        longest = std::max(longest, (rule.*text).size());
    return longest;
}

} // namespace tavrik::profile

#endif
