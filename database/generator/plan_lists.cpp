#include <algorithm>
#include <stdexcept>

#include "database/generator/planner.h"
#include "database/profile/profile.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using profile::ListProfile;
using rules::Rule;
using rules::RuleSet;
namespace resource_type = pe::resource_type;

// Resource types, as often as they are drawn.
constexpr uint16_t kEntryTypes[] = {3, 3, 3, 3, 3, 3,  3,  3,  3,  3,  3, 3, 14, 14, 14, 14, 14, 14, 14, 2,
                                    2, 2, 2, 2, 2, 10, 10, 10, 10, 10, 5, 5, 5,  5,  1,  1,  1,  12, 4,  9};
constexpr uint32_t kTypeNumbers[] = {1, 101, 777, 101, 2, 10, 5, 102, 1, 777, 3, 100, 14, 129};

constexpr uint32_t kVersionKeys[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16, 20, 23, 25, 26, 28, 29, 0};
constexpr uint32_t kUsualVersionKeys = 11; // the first ones, which most resources have
constexpr uint32_t kManifestKeys[] = {30, 34, 33, 32, 31, 35, 0};

void MoveToFront(std::vector<RulePlan *> &plans, RulePlan *plan) {
    std::erase(plans, plan);
    plans.insert(plans.begin(), plan);
}

bool CanHaveManySections(const RulePlan &plan) {
    return plan.archetype->toolchain == Toolchain::Protector || plan.archetype->toolchain == Toolchain::Msvc9;
}

} // namespace

std::size_t Planner::RulesLeft(const RuleSet &written, List list) {
    const ListProfile &published = profile::ListProfiles()[list];
    return Room::Rest(published.rules,
                      static_cast<std::size_t>(std::ranges::count_if(
                          written.rules, [&](const Rule &rule) { return published.size(rule) != 0; })));
}

std::size_t Planner::ElementsLeft(List list) const {
    const ListProfile &published = profile::ListProfiles()[list];
    std::size_t used = 0;
    for (const Rule &rule : written_.rules)
        used += published.size(rule);
    return Room::Rest(published.elements, used);
}

// Gives each of `users` at least `smallest` elements, all together what is left of the list; the first gets the
// largest number, the others at most `most`.
void Planner::Share(List list, const Plans &users, std::size_t elements, uint32_t smallest, uint32_t most,
                    bool first_largest) {
    constexpr uint32_t kSpread = 256;
    const auto largest = static_cast<uint32_t>(profile::ListProfiles()[list].largest);
    if (users.empty() || elements < users.size() * smallest)
        throw std::invalid_argument("too many elements of " + std::string(profile::ListProfiles()[list].name) +
                                    " are in hand-written rules");
    std::vector<uint64_t> weights;
    uint64_t sum = 0;
    for (std::size_t i = 0; i < users.size(); ++i) {
        weights.push_back(uint64_t{1 + random_.Below(kSpread)} * (1 + random_.Below(kSpread)));
        sum += weights.back();
    }
    uint64_t left = elements;
    uint64_t spread = elements - users.size() * smallest - (first_largest ? largest - smallest : 0);
    for (std::size_t i = 0; i < users.size(); ++i) {
        uint32_t &count = users[i]->counts[list];
        const bool is_largest = i == 0 && first_largest;
        count = is_largest ? largest : std::min(most, smallest + static_cast<uint32_t>(spread * weights[i] / sum));
        left -= count;
    }
    for (std::size_t i = 0; left > 0; ++i) {
        if (i > (users.size() + 1) * most)
            throw std::logic_error("a list has more elements than its users can hold");
        uint32_t &count = users[random_.Below(users.size())]->counts[list];
        if (count < most) {
            ++count;
            --left;
        }
    }
}

void Planner::Share(List list, Plans users, uint32_t smallest, uint32_t most) {
    users.resize(RulesLeft(written_, list));
    Share(list, users, ElementsLeft(list), smallest, most, true);
}

void Planner::ShareContentLists() {
    Plans users = Shuffled([](const RulePlan &) { return true; });
    ShareStrings(users);
    random_.Shuffle(users);
    Share(kMeasures, users, 1, 10);
}

// Some rules get many strings, so that every size of expression has its rules.
void Planner::ShareStrings(Plans users) {
    struct Sized {
        uint32_t strings;
        std::size_t rules;
    };
    constexpr Sized kMany[] = {{13, 6}, {12, 6}, {11, 8}, {10, 12}, {9, 18}, {8, 30}, {7, 50}};
    users.resize(RulesLeft(written_, kStrings));
    std::size_t elements = ElementsLeft(kStrings);
    std::size_t next = 0;
    for (const Sized &many : kMany) {
        for (std::size_t i = 0; i < many.rules; ++i) {
            users[next++]->counts[kStrings] = many.strings;
            elements -= many.strings;
        }
    }
    Share(kStrings, Plans(users.begin() + static_cast<std::ptrdiff_t>(next), users.end()), elements, 1, 6, false);
}

void Planner::ShareStructureLists() {
    constexpr std::size_t kManySections = 60;
    Plans many = Shuffled(CanHaveManySections);
    many.resize(kManySections);
    for (RulePlan *plan : many)
        plan->many_sections = true;
    Plans users = Shuffled([](const RulePlan &) { return true; });
    for (RulePlan *plan : many)
        MoveToFront(users, plan);
    Share(kSections, users, 1, 30);
    random_.Shuffle(users);
    for (RulePlan *plan : many)
        MoveToFront(users, plan);
    Share(kSectionNames, users, 1, 7);
    for (RulePlan *plan : many) // so that every position of a section is named somewhere
        if (plan->counts[kSectionNames] < 4) {
            RulePlan *giver = *std::ranges::find_if(
                users, [&](const RulePlan *user) { return !user->many_sections && user->counts[kSectionNames] == 4; });
            std::swap(giver->counts[kSectionNames], plan->counts[kSectionNames]);
        }
}

// Rules that name functions mostly name their modules too.
void Planner::ShareImports() {
    constexpr uint32_t kRulesOfManyModules = 80;
    constexpr std::size_t kBasicModules = 30;
    constexpr std::size_t kFunctionsAlone = 5; // one rule in so many
    Plans users = Shuffled([](const RulePlan &plan) {
        return plan.archetype->toolchain == Toolchain::Msvc6 || plan.archetype->toolchain == Toolchain::Msvc9 ||
               plan.archetype->toolchain == Toolchain::MinGw || plan.archetype->toolchain == Toolchain::Delphi;
    });
    for (uint32_t i = 0; i < kRulesOfManyModules; ++i) {
        users[i]->many_modules = true;
        users[i]->named_module = i % kManyModules;
    }

    Plans basic = Shuffled([](const RulePlan &plan) { return plan.IsVisualBasic(); });
    basic.resize(kBasicModules);
    for (RulePlan *plan : basic)
        plan->counts[kImportModules] = 1;
    const std::size_t module_rules = RulesLeft(written_, kImportModules) - kBasicModules;
    const Plans with_modules(users.begin(), users.begin() + static_cast<std::ptrdiff_t>(module_rules));
    Share(kImportModules, with_modules, ElementsLeft(kImportModules) - kBasicModules, 1, 5, true);

    Plans with_functions(1, users.front());
    for (std::size_t i = 1; with_functions.size() < RulesLeft(written_, kImportFunctions); ++i)
        with_functions.push_back(i % kFunctionsAlone == 0 ? users.at(module_rules + i) : users[i]);
    Share(kImportFunctions, with_functions, ElementsLeft(kImportFunctions), 1, 9, true);

    users.resize(RulesLeft(written_, kImportTable));
    Share(kImportTable, users, ElementsLeft(kImportTable), 1, 9, true);

    const std::size_t kernel = room_.Elements(profile::kKernelNames, &Rule::import_modules,
                                              [](const auto &module) { return module.name == profile::kKernelName; });
    for (std::size_t i = 0; i < kernel; ++i)
        with_modules.at(with_modules.size() - 1 - i)->kernel_name = true;
}

void Planner::ShareExports() {
    const auto is_library = [](const RulePlan &plan) { return plan.IsLibrary(); };
    Share(kExportModule, Shuffled(is_library), 1, 1);
    Share(kExportFunctions, Shuffled(is_library), 1, 5);
}

void Planner::ShareResources() {
    const auto any = [](const RulePlan &) { return true; };
    const auto has_resources = [](const RulePlan &plan) { return plan.archetype->toolchain != Toolchain::Managed; };
    Plans entries = Shuffled(has_resources);
    Share(kResources, entries, 1, 9);
    for (RulePlan *plan : entries)
        for (uint32_t i = 0; i < plan->counts[kResources]; ++i)
            plan->resource_types.push_back(random_.Pick(kEntryTypes));

    Plans types = Shuffled(any);
    Share(kResourceTypes, types, 1, 3);
    std::vector<uint32_t> numbers(room_.Elements(profile::kAnyResourceTypes, &Rule::resource_type_entries,
                                                 [](const auto &entry) { return entry.number == rules::kAnyResource; }),
                                  rules::kAnyResource);
    for (std::size_t i = 0; numbers.size() < ElementsLeft(kResourceTypes); ++i)
        numbers.push_back(kTypeNumbers[i % std::size(kTypeNumbers)]);
    random_.Shuffle(numbers);
    for (RulePlan *plan : types)
        for (uint32_t i = 0; i < plan->counts[kResourceTypes]; ++i) {
            plan->resource_numbers.push_back(numbers.back());
            numbers.pop_back();
        }

    Plans strings = Shuffled(any);
    Share(kResourceStrings, strings, 1, 9);
    ChooseStringKeys(strings);
}

// Distinct keys within a rule: string table entries in a few rules, manifests in some, versions in most.
void Planner::ChooseStringKeys(Plans &users) {
    std::size_t table_strings = room_.Elements(
        profile::ListProfiles()[kResourceStrings].elements - profile::kNamedStringKeys, &Rule::resource_strings,
        [](const auto &text) { return text.key >= profile::kNamedStringKeyLimit; });
    for (RulePlan *plan : users) {
        const uint32_t count = plan->counts[kResourceStrings];
        if (count == 0)
            continue;
        uint32_t from_table = 0;
        if (count >= 2 && table_strings > 0)
            from_table = static_cast<uint32_t>(std::min<std::size_t>(table_strings, count - 1));
        table_strings -= from_table;
        uint32_t number = profile::kNamedStringKeyLimit + random_.Below(2000U);
        for (uint32_t i = 0; i < from_table; ++i, number += 1 + random_.Below(3U))
            plan->string_keys.push_back({resource_type::kString, number});
        const uint32_t left = count - from_table;
        const uint32_t manifest = random_.Chance(14) ? std::min(left, random_.Between(1, 3)) : 0;
        for (uint32_t i = 0; i < manifest; ++i)
            plan->string_keys.push_back({resource_type::kManifest, kManifestKeys[i]});
        const uint32_t first = left > kUsualVersionKeys ? 0 : random_.Below(uint32_t{std::size(kVersionKeys)} - left);
        for (uint32_t i = 0; i < left - manifest; ++i)
            plan->string_keys.push_back({resource_type::kVersion, kVersionKeys[first + i]});
    }
    if (table_strings != 0)
        throw std::logic_error("strings of string tables found no rule");
}

void Planner::ShareVisualBasicLists() {
    constexpr std::size_t kManyObjects = 16;
    Plans users = Shuffled([](const RulePlan &plan) { return plan.IsVisualBasic(); });
    for (std::size_t i = 0; i < kManyObjects; ++i)
        users[i]->many_objects = true;
    Share(kObjectFields, users, 1, 45);
    Share(kObjectNames, users, 1, 6);
    Share(kMemberNames, users, 1, 8);
}

// Two rules do without: they know their files by contents alone.
void Planner::ShareHeaders() {
    constexpr uint32_t kFewest = 4;
    Plans users = Shuffled([](const RulePlan &) { return true; });
    std::size_t without = plans_.size() - RulesLeft(written_, kHeader);
    for (auto plan = users.begin(); without > 0;) {
        const bool fits = (*plan)->counts[kStrings] >= 2 && (*plan)->counts[kMeasures] >= 3 &&
                          !(*plan)->IsVisualBasic() && (*plan)->archetype->target == kProgramTarget;
        plan = fits ? users.erase(plan) : plan + 1;
        without -= fits ? 1 : 0;
    }
    Share(kHeader, users, kFewest, 50);

    const auto tested = [&](std::size_t whole, uint32_t target) {
        const std::size_t rules = room_.Rules(whole, [&](const Rule &rule) {
            return rule.attribute_a == target &&
                   std::ranges::any_of(rule.header_conditions, [](const rules::HeaderCondition &condition) {
                       return condition.field == rules::header_field::kCharacteristics;
                   });
        });
        Plans chosen = Shuffled(
            [&](const RulePlan &plan) { return plan.archetype->target == target && plan.counts[kHeader] != 0; });
        for (std::size_t i = 0; i < rules; ++i)
            chosen.at(i)->tests_characteristics = true;
    };
    tested(profile::kProgramsByCharacteristics, kProgramTarget);
    tested(profile::kLibrariesByCharacteristics, kLibraryTarget);
    for (RulePlan *plan : plans_)
        if (plan->archetype->target != kProgramTarget && plan->archetype->target != kLibraryTarget)
            plan->tests_characteristics = true;

    Plans stale = Shuffled([](const RulePlan &) { return true; });
    stale.resize(room_.Rules(profile::kDisagreeingFlags,
                             [](const Rule &rule) { return rule.stored_flags != rules::ComputeFeatureFlags(rule); }));
    for (RulePlan *plan : stale)
        plan->is_stale = true;
}

} // namespace tavrik::generator
