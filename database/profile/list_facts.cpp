#include <algorithm>
#include <string>

#include "database/profile/answers.h"
#include "database/profile/facts.h"
#include "rules/lists.h"

namespace tavrik::profile {

namespace {

// What is published about one list.
struct Figures {
    std::size_t rules;    // that use it
    std::size_t largest;  // most elements in one rule
    std::size_t elements; // of all rules
};

struct ListFigures {
#define TAVRIK_LIST(member, Element, item, word, flag) Figures member;
#include "rules/lists.def"
};

constexpr ListFigures kFigures = {
    .header_conditions = {6526, 65, 139953},
    .section_conditions = {6057, 55, 43959},
    .section_names = {5098, 18, 14515},
    .strings = {4608, 13, 13110},
    .indexed_conditions = {114, 12, 503},
    .import_modules = {940, 11, 1509},
    .import_functions = {731, 28, 2048},
    .export_module_names = {152, 1, 152},
    .export_functions = {156, 11, 321},
    .resource_entries = {1071, 53, 3020},
    .resource_type_entries = {60, 6, 116},
    .resource_strings = {675, 11, 2005},
    .measure_conditions = {2392, 12, 7663},
    .secondary_conditions = {102, 62, 1618},
    .object_names = {71, 9, 193},
    .member_names = {31, 15, 85},
};

constexpr ListProfile kLists[] = {
#define TAVRIK_LIST(member, Element, item, word, flag)                                                                 \
    {rules::Item::item,                                                                                                \
     #member,                                                                                                          \
     [](const rules::Rule &rule) { return rule.member.size(); },                                                       \
     kFigures.member.rules,                                                                                            \
     kFigures.member.largest,                                                                                          \
     kFigures.member.elements},
#include "rules/lists.def"
};

std::string ListSizes(const Figures &figures) {
    return "rules " + Count(figures.rules) + ", largest " + Count(figures.largest) + ", elements " +
           Count(figures.elements);
}

} // namespace

std::span<const ListProfile> ListProfiles() {
    return kLists;
}

const ListProfile &ProfileOf(rules::Item item) {
    return *std::ranges::find(kLists, item, &ListProfile::item);
}

std::vector<FactResult> ListFacts(const rules::RuleSet &set) {
    std::vector<FactResult> facts;
    for (const ListProfile &list : kLists) {
        Figures actual = {};
        for (const rules::Rule &rule : set.rules) {
            const std::size_t size = list.size(rule);
            actual.rules += size != 0 ? 1U : 0U;
            actual.largest = std::max(actual.largest, size);
            actual.elements += size;
        }
        facts.push_back({list.name, ListSizes({list.rules, list.largest, list.elements}), ListSizes(actual)});
    }
    return facts;
}

} // namespace tavrik::profile
