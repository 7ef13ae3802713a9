#include "database/generator/plan.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "database/generator/expressions.h"
#include "database/generator/names.h"
#include "database/generator/random.h"
#include "database/profile/profile.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using profile::ListProfile;
using rules::Rule;
using rules::RuleSet;

constexpr uint64_t kSeed = 0x7441765269C6;
constexpr uint32_t kProgramTarget = 1;
constexpr uint32_t kLibraryTarget = 0;

// How many rules stand for the targets that are neither programs nor libraries.
struct TargetCount {
    uint32_t target;
    std::size_t rules;
};
constexpr TargetCount kOtherTargets[] = {{2, 30},  {3, 6},   {4, 12}, {5, 25},  {8, 28},
                                         {24, 12}, {72, 14}, {80, 9}, {144, 9}, {192, 6}};

constexpr std::size_t kBasicWithoutThreadCount = 24; // Visual Basic rules that do not test it
constexpr uint32_t kLongestRun = 15;                 // rules of one family that follow each other

// Kinds of strings other than section[n] by their number in the whole database.
struct KindCount {
    uint8_t kind;
    std::size_t elements;
};
constexpr std::size_t kFromEndNamed = 60; // of kind 16
constexpr KindCount kCommonKinds[] = {
    {18, 330}, {1, 420}, {2, 50},   {3, 40},  {4, 20},   {5, 240}, {6, 60},   {7, 640}, {8, 30},
    {9, 190},  {10, 30}, {11, 230}, {12, 40}, {13, 150}, {14, 20}, {19, 120}, {20, 20}, {21, 40},
    {22, 15},  {23, 90}, {24, 20},  {27, 60}, {28, 15},  {29, 45}, {30, 10},
};
constexpr KindCount kLibraryKinds[] = {{25, 24}, {26, 10}};
constexpr KindCount kBasicKinds[] = {{31, 150}, {32, 20}};

// Measured regions other than section[n].
constexpr uint8_t kCommonRegions[] = {61, 62, 62, 62, 63, 66, 69, 70, 70, 71, 72, 73, 74, 75, 75, 75, 76, 77};
constexpr uint8_t kLibraryRegions[] = {64, 65, 67, 68};
constexpr uint8_t kBasicRegions[] = {78};

// Resource types, as often as they stand here.
constexpr uint16_t kEntryTypes[] = {3, 3, 3, 3, 3, 3,  3,  3,  3,  3,  3, 3, 14, 14, 14, 14, 14, 14, 14, 2,
                                    2, 2, 2, 2, 2, 10, 10, 10, 10, 10, 5, 5, 5,  5,  1,  1,  1,  12, 4,  9};
constexpr uint32_t kTypeNumbers[] = {1, 101, 777, 101, 2, 10, 5, 102, 1, 777, 3, 100, 14, 129};

namespace resource_type = pe::resource_type;
constexpr uint32_t kVersionKeys[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14, 15, 16, 20, 23, 25, 26, 28, 29, 0};
constexpr uint32_t kUsualVersionKeys = 11; // the first ones, which most resources have
constexpr uint32_t kManifestKeys[] = {30, 34, 33, 32, 31, 35, 0};

// What the hand-written rules use up of each count.
struct Room {
    explicit Room(const RuleSet &written) : written_(written) {}

    template <typename Matches>
    std::size_t Rules(std::size_t whole, Matches matches) const {
        return Rest(whole, static_cast<std::size_t>(std::ranges::count_if(written_.rules, matches)));
    }

    template <typename Element, typename Matches>
    std::size_t Elements(std::size_t whole, std::vector<Element> Rule::*list, Matches matches) const {
        std::size_t used = 0;
        for (const Rule &rule : written_.rules)
            used += static_cast<std::size_t>(std::ranges::count_if(rule.*list, matches));
        return Rest(whole, used);
    }

    static std::size_t Rest(std::size_t whole, std::size_t used) {
        if (used > whole)
            throw std::invalid_argument("the hand-written rules hold " + std::to_string(used) +
                                        " of what the profile has " + std::to_string(whole) + ": write fewer of them");
        return whole - used;
    }

private:
    const RuleSet &written_;
};

class Planner {
public:
    explicit Planner(const RuleSet &written) : written_(written), room_(written), random_(kSeed) {}

    std::vector<Slot> Plan() {
        PlaceIds();
        ChooseArchetypes();
        ChooseVisualBasicTests();
        ShareContentLists();
        ShareStructureLists();
        ShareImports();
        ShareExports();
        ShareResources();
        ShareVisualBasicLists();
        ShareHeaders();
        ChooseTraits();
        ChooseExpressions();
        ChooseStringKinds();
        ChooseMeasures();
        ChooseSectionNames();
        return std::move(slots_);
    }

private:
    using Plans = std::vector<RulePlan *>;

    // ---- The table ----

    // Ascending ids, then five of them set back: the second carriers of the doubles and three others.
    void PlaceIds() {
        constexpr uint32_t kSetBack[] = {611, 2930, 7703};
        constexpr std::size_t kFartherOn[] = {1290, 260, 905}; // places behind where they would stand
        constexpr std::size_t kDoublesFartherOn[] = {731, 44};

        std::map<uint32_t, const Rule *> ids;
        for (const Rule &rule : written_.rules) {
            if (rule.rule_id < profile::kFirstId || rule.rule_id > profile::kLastId ||
                !ids.emplace(rule.rule_id, &rule).second)
                throw std::invalid_argument("rule " + std::to_string(rule.rule_id) +
                                            ": hand-written ids must be between 1 and 9531, each used once");
        }
        for (const uint32_t id : {profile::kFirstId, profile::kLastId, profile::kDoubleIds[0], profile::kDoubleIds[1],
                                  kSetBack[0], kSetBack[1], kSetBack[2]})
            ids.emplace(id, nullptr);
        const std::size_t distinct = profile::kRules - std::size(profile::kDoubleIds);
        while (ids.size() < distinct)
            ids.emplace(random_.Between(profile::kFirstId, profile::kLastId), nullptr);

        std::vector<std::pair<uint32_t, const Rule *>> order(ids.begin(), ids.end());
        const auto find = [&](uint32_t id) {
            return std::ranges::find(order, id, &std::pair<uint32_t, const Rule *>::first);
        };
        for (std::size_t i = 0; i < std::size(kSetBack); ++i) {
            const auto from = find(kSetBack[i]);
            std::rotate(from, from + 1, from + 1 + static_cast<std::ptrdiff_t>(kFartherOn[i]));
        }
        for (std::size_t i = 0; i < std::size(profile::kDoubleIds); ++i)
            order.insert(find(profile::kDoubleIds[i]) + static_cast<std::ptrdiff_t>(kDoublesFartherOn[i]),
                         {profile::kDoubleIds[i], nullptr});

        slots_.resize(order.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            slots_[i].written = order[i].second;
            slots_[i].plan.rule_id = order[i].first;
            slots_[i].plan.seed = Mix(kSeed ^ (i << 20));
            if (slots_[i].written == nullptr)
                plans_.push_back(&slots_[i].plan);
        }
    }

    // Families of 1 to kLongestRun rules that follow each other, so that the numbers of the targets come out.
    void ChooseArchetypes() {
        struct Run {
            const Archetype *archetype;
            uint32_t length;
        };
        std::vector<Run> runs;
        const auto add_runs = [&](uint32_t target, bool visual_basic, std::size_t rules) {
            std::vector<const Archetype *> choice;
            for (const Archetype &archetype : Archetypes())
                if (archetype.target == target && (archetype.toolchain == Toolchain::VisualBasic) == visual_basic)
                    choice.insert(choice.end(), archetype.weight, &archetype);
            while (rules > 0) {
                const auto length =
                    static_cast<uint32_t>(std::min<std::size_t>(rules, random_.Between(1, kLongestRun)));
                runs.push_back({random_.Pick(choice), length});
                rules -= length;
            }
        };
        const auto of_target = [&](std::size_t whole, uint32_t target) {
            return room_.Rules(whole, [&](const Rule &rule) { return rule.attribute_a == target; });
        };
        const std::size_t visual_basic = VisualBasicTests(profile::kVbThreadCounts) + kBasicWithoutThreadCount;
        const std::size_t programs = of_target(profile::kPrograms, kProgramTarget);
        add_runs(kProgramTarget, false, programs - visual_basic);
        add_runs(kProgramTarget, true, visual_basic);
        add_runs(kLibraryTarget, false, of_target(profile::kLibraries, kLibraryTarget));
        for (const TargetCount &other : kOtherTargets)
            add_runs(other.target, false, of_target(other.rules, other.target));
        random_.Shuffle(runs);

        DetectionNames names;
        for (const Rule &rule : written_.rules)
            names.Take(rule.detection_name);
        auto plan = plans_.begin();
        for (uint32_t family = 0; family < runs.size(); ++family) {
            const Archetype &archetype = *runs[family].archetype;
            const std::string word =
                archetype.family.empty() ? FamilyWord(kSeed + family) : std::string(archetype.family);
            for (uint32_t i = 0; i < runs[family].length; ++i, ++plan) {
                if (plan == plans_.end())
                    throw std::invalid_argument("the targets of the hand-written rules leave a number of rules that "
                                                "does not fit the table");
                (*plan)->archetype = &archetype;
                (*plan)->family = family;
                (*plan)->detection_name = names.Next(archetype.category, word, random_);
            }
        }
        if (plan != plans_.end())
            throw std::invalid_argument("a hand-written rule has a target that the profile does not have");
    }

    std::size_t VisualBasicTests(std::size_t whole) const {
        return room_.Elements(whole, &Rule::header_conditions, [](const rules::HeaderCondition &condition) {
            return condition.field == rules::header_field::kVbThreadCount;
        });
    }

    void ChooseVisualBasicTests() {
        const auto choose = [&](CountedTest RulePlan::*test, uint16_t field, uint32_t usual, std::size_t whole,
                                std::size_t whole_usual) {
            const auto tests = [&](const rules::HeaderCondition &condition) { return condition.field == field; };
            const std::size_t all = room_.Elements(whole, &Rule::header_conditions, tests);
            const std::size_t others = all - room_.Elements(whole_usual, &Rule::header_conditions,
                                                            [&](const rules::HeaderCondition &condition) {
                                                                return tests(condition) && condition.value == usual;
                                                            });
            Plans chosen = Shuffled([](const RulePlan &plan) { return plan.IsVisualBasic(); });
            for (std::size_t i = 0; i < all; ++i)
                chosen.at(i)->*test = i < others ? CountedTest::Other : CountedTest::Usual;
        };
        choose(&RulePlan::vb_thread_count, 129, 1, profile::kVbThreadCounts, profile::kVbThreadCountsOne);
        choose(&RulePlan::vb_version, 140, 500, profile::kVbVersions, profile::kVbVersions500);
    }

    // ---- Sharing out elements ----

    template <typename Matches>
    Plans Shuffled(Matches matches) {
        Plans chosen;
        for (RulePlan *plan : plans_)
            if (matches(*plan))
                chosen.push_back(plan);
        random_.Shuffle(chosen);
        return chosen;
    }

    static std::size_t RulesLeft(const RuleSet &written, List list) {
        const ListProfile &published = profile::ListProfiles()[list];
        return Room::Rest(published.rules,
                          static_cast<std::size_t>(std::ranges::count_if(
                              written.rules, [&](const Rule &rule) { return published.size(rule) != 0; })));
    }

    std::size_t ElementsLeft(List list) const {
        const ListProfile &published = profile::ListProfiles()[list];
        std::size_t used = 0;
        for (const Rule &rule : written_.rules)
            used += published.size(rule);
        return Room::Rest(published.elements, used);
    }

    // Gives each of `users` at least `smallest` elements, all together what is left of the list; the first gets the
    // largest number, the others at most `most`.
    void Share(List list, const Plans &users, std::size_t elements, uint32_t smallest, uint32_t most,
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

    void Share(List list, Plans users, uint32_t smallest, uint32_t most) {
        users.resize(RulesLeft(written_, list));
        Share(list, users, ElementsLeft(list), smallest, most, true);
    }

    // ---- Lists ----

    static bool CanHaveManySections(const RulePlan &plan) {
        return plan.archetype->toolchain == Toolchain::Protector || plan.archetype->toolchain == Toolchain::Msvc9;
    }

    static void MoveToFront(Plans &plans, RulePlan *plan) {
        std::erase(plans, plan);
        plans.insert(plans.begin(), plan);
    }

    void ShareContentLists() {
        Plans users = Shuffled([](const RulePlan &) { return true; });
        ShareStrings(users);
        random_.Shuffle(users);
        Share(kMeasureConditions, users, 1, 10);
    }

    // Some rules get many strings, so that every size of expression has its rules.
    void ShareStrings(Plans users) {
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

    void ShareStructureLists() {
        constexpr std::size_t kManySections = 60;
        Plans many = Shuffled(CanHaveManySections);
        many.resize(kManySections);
        for (RulePlan *plan : many)
            plan->many_sections = true;
        Plans users = Shuffled([](const RulePlan &) { return true; });
        for (RulePlan *plan : many)
            MoveToFront(users, plan);
        Share(kSectionConditions, users, 1, 30);
        random_.Shuffle(users);
        for (RulePlan *plan : many)
            MoveToFront(users, plan);
        Share(kSectionNames, users, 1, 7);
        for (RulePlan *plan : many) // so that every position of a section is named somewhere
            if (plan->counts[kSectionNames] < 4) {
                RulePlan *giver = *std::ranges::find_if(users, [&](const RulePlan *user) {
                    return !user->many_sections && user->counts[kSectionNames] == 4;
                });
                std::swap(giver->counts[kSectionNames], plan->counts[kSectionNames]);
            }
    }

    // Rules that name functions mostly name their modules too.
    void ShareImports() {
        constexpr uint32_t kManyModules = 80;
        constexpr uint32_t kModulePositions = 21;
        constexpr std::size_t kBasicModules = 30;
        constexpr std::size_t kFunctionsAlone = 5; // one rule in so many
        Plans users = Shuffled([](const RulePlan &plan) {
            return plan.archetype->toolchain == Toolchain::Msvc6 || plan.archetype->toolchain == Toolchain::Msvc9 ||
                   plan.archetype->toolchain == Toolchain::MinGw || plan.archetype->toolchain == Toolchain::Delphi;
        });
        for (uint32_t i = 0; i < kManyModules; ++i) {
            users[i]->many_modules = true;
            users[i]->named_module = i % kModulePositions;
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

        users.resize(RulesLeft(written_, kIndexedConditions));
        Share(kIndexedConditions, users, ElementsLeft(kIndexedConditions), 1, 9, true);

        const std::size_t kernel = room_.Elements(profile::kKernelNames, &Rule::import_modules, [](const auto &module) {
            return module.name == profile::kKernelName;
        });
        for (std::size_t i = 0; i < kernel; ++i)
            with_modules.at(with_modules.size() - 1 - i)->kernel_name = true;
    }

    void ShareExports() {
        const auto is_library = [](const RulePlan &plan) { return plan.IsLibrary(); };
        Share(kExportModuleNames, Shuffled(is_library), 1, 1);
        Share(kExportFunctions, Shuffled(is_library), 1, 5);
    }

    void ShareResources() {
        const auto any = [](const RulePlan &) { return true; };
        const auto has_resources = [](const RulePlan &plan) { return plan.archetype->toolchain != Toolchain::Managed; };
        Plans entries = Shuffled(has_resources);
        Share(kResourceEntries, entries, 1, 9);
        for (RulePlan *plan : entries)
            for (uint32_t i = 0; i < plan->counts[kResourceEntries]; ++i)
                plan->resource_types.push_back(random_.Pick(kEntryTypes));

        Plans types = Shuffled(any);
        Share(kResourceTypeEntries, types, 1, 3);
        std::vector<uint32_t> numbers(
            room_.Elements(profile::kAnyResourceTypes, &Rule::resource_type_entries,
                           [](const auto &entry) { return entry.number == rules::kAnyResource; }),
            rules::kAnyResource);
        for (std::size_t i = 0; numbers.size() < ElementsLeft(kResourceTypeEntries); ++i)
            numbers.push_back(kTypeNumbers[i % std::size(kTypeNumbers)]);
        random_.Shuffle(numbers);
        for (RulePlan *plan : types)
            for (uint32_t i = 0; i < plan->counts[kResourceTypeEntries]; ++i) {
                plan->resource_numbers.push_back(numbers.back());
                numbers.pop_back();
            }

        Plans strings = Shuffled(any);
        Share(kResourceStrings, strings, 1, 9);
        ChooseStringKeys(strings);
    }

    // Distinct keys within a rule: string table entries in a few rules, manifests in some, versions in most.
    void ChooseStringKeys(Plans &users) {
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
            const uint32_t first =
                left > kUsualVersionKeys ? 0 : random_.Below(uint32_t{std::size(kVersionKeys)} - left);
            for (uint32_t i = 0; i < left - manifest; ++i)
                plan->string_keys.push_back({resource_type::kVersion, kVersionKeys[first + i]});
        }
        if (table_strings != 0)
            throw std::logic_error("strings of string tables found no rule");
    }

    void ShareVisualBasicLists() {
        constexpr std::size_t kManyObjects = 16;
        Plans users = Shuffled([](const RulePlan &plan) { return plan.IsVisualBasic(); });
        for (std::size_t i = 0; i < kManyObjects; ++i)
            users[i]->many_objects = true;
        Share(kSecondaryConditions, users, 1, 45);
        Share(kObjectNames, users, 1, 6);
        Share(kMemberNames, users, 1, 8);
    }

    // Two rules do without: they know their files by contents alone.
    void ShareHeaders() {
        constexpr uint32_t kFewest = 4;
        Plans users = Shuffled([](const RulePlan &) { return true; });
        std::size_t without = plans_.size() - RulesLeft(written_, kHeaderConditions);
        for (auto plan = users.begin(); without > 0;) {
            const bool fits = (*plan)->counts[kStrings] >= 2 && (*plan)->counts[kMeasureConditions] >= 3 &&
                              !(*plan)->IsVisualBasic() && (*plan)->archetype->target == kProgramTarget;
            plan = fits ? users.erase(plan) : plan + 1;
            without -= fits ? 1 : 0;
        }
        Share(kHeaderConditions, users, kFewest, 50);

        const auto tested = [&](std::size_t whole, uint32_t target) {
            const std::size_t rules = room_.Rules(whole, [&](const Rule &rule) {
                return rule.attribute_a == target &&
                       std::ranges::any_of(rule.header_conditions, [](const rules::HeaderCondition &condition) {
                           return condition.field == rules::header_field::kCharacteristics;
                       });
            });
            Plans chosen = Shuffled([&](const RulePlan &plan) {
                return plan.archetype->target == target && plan.counts[kHeaderConditions] != 0;
            });
            for (std::size_t i = 0; i < rules; ++i)
                chosen.at(i)->tests_characteristics = true;
        };
        tested(profile::kProgramsByCharacteristics, kProgramTarget);
        tested(profile::kLibrariesByCharacteristics, kLibraryTarget);
        for (RulePlan *plan : plans_)
            if (plan->archetype->target != kProgramTarget && plan->archetype->target != kLibraryTarget)
                plan->tests_characteristics = true;

        Plans stale = Shuffled([](const RulePlan &) { return true; });
        stale.resize(room_.Rules(profile::kDisagreeingFlags, [](const Rule &rule) {
            return rule.stored_flags != rules::ComputeFeatureFlags(rule);
        }));
        for (RulePlan *plan : stale)
            plan->is_stale = true;
    }

    // ---- What the elements are ----

    void ChooseTraits() {
        constexpr uint32_t kFunctionsOfFew = 4;
        for (RulePlan *plan : plans_) {
            const uint32_t traits = random_.Pick(plan->archetype->traits);
            const bool imports_many = plan->counts[kImportFunctions] > kFunctionsOfFew ||
                                      plan->counts[kImportModules] > 2 || plan->counts[kIndexedConditions] > 0 ||
                                      plan->many_modules;
            if ((traits & rules::trait::kFewImports) != 0 && imports_many)
                continue;
            plan->traits = traits;
        }
    }

    static std::size_t LetterCount(const std::string &expression) {
        std::set<char> letters(expression.begin(), expression.end());
        std::erase_if(letters, [](char c) { return c < 'A' || c > 'Z'; });
        return letters.size();
    }

    void ChooseExpressions() {
        std::set<std::string> taken;
        for (const Rule &rule : written_.rules)
            if (!rule.expression.empty())
                taken.insert(rule.expression);
        const std::size_t rules =
            room_.Rules(profile::kExpressions, [](const Rule &rule) { return !rule.expression.empty(); });
        const std::size_t partial =
            room_.Rules(profile::kExpressions - profile::kExpressionsOverAll, [](const Rule &rule) {
                return !rule.expression.empty() && LetterCount(rule.expression) < rule.strings.size();
            });
        const ExpressionPool pool = MakeExpressions(profile::kDistinctExpressions - taken.size(), taken, random_);

        std::map<std::size_t, Plans> by_strings;
        for (RulePlan *plan : Shuffled([](const RulePlan &plan) { return plan.counts[kStrings] >= 2; }))
            by_strings[plan->counts[kStrings]].push_back(plan);
        std::size_t given = 0;
        const auto give = [&](std::size_t strings, const std::string &text) {
            if (by_strings[strings].empty())
                throw std::logic_error("no rule with " + std::to_string(strings) +
                                       " strings is left for an expression");
            by_strings[strings].back()->expression = text;
            by_strings[strings].pop_back();
            ++given;
        };
        for (const auto &[letters, texts] : pool)
            for (const std::string &text : texts)
                give(letters, text);
        ExpressionPool choice = pool; // what the hand-written rules use is good for others too
        for (const std::string &text : taken)
            choice[LetterCount(text)].push_back(text);
        for (std::size_t i = 0; i < partial; ++i)
            give(4 + i, random_.Pick(choice.at(3 + i)));
        while (given < rules) {
            const std::size_t letters = random_.Between(2, random_.Between(2, 5));
            if (!by_strings[letters].empty())
                give(letters, random_.Pick(choice.at(letters)));
        }
    }

    void ChooseStringKinds() {
        constexpr uint8_t kSection = 17;
        constexpr uint8_t kNamed = 15;
        struct Place {
            RulePlan *plan;
            uint32_t index;
        };
        std::vector<Place> places;
        for (RulePlan *plan : plans_) {
            plan->string_kinds.assign(plan->counts[kStrings], kSection);
            for (uint32_t i = 0; i < plan->counts[kStrings]; ++i)
                if (!plan->many_sections) // these show the numbers that section[n] can have
                    places.push_back({plan, i});
        }
        random_.Shuffle(places);
        const auto give = [&](uint8_t kind, std::size_t elements, auto matches) {
            for (auto place = places.begin(); elements > 0; ++place) {
                if (place == places.end())
                    throw std::logic_error("no string is left for kind " + std::to_string(kind));
                uint8_t &chosen = place->plan->string_kinds[place->index];
                if (chosen != kSection || !matches(*place->plan))
                    continue;
                chosen = kind;
                --elements;
            }
        };
        for (const KindCount &basic : kBasicKinds)
            give(basic.kind, basic.elements, [](const RulePlan &plan) { return plan.IsVisualBasic(); });
        for (const KindCount &library : kLibraryKinds)
            give(library.kind, library.elements, [](const RulePlan &plan) { return plan.IsLibrary(); });
        const std::size_t named = room_.Elements(profile::kNamedSectionStrings, &Rule::strings,
                                                 [](const auto &string) { return !string.section_name.empty(); });
        const std::size_t tails = room_.Elements(profile::kSectionTails, &Rule::strings,
                                                 [](const auto &string) { return !string.section_tail.empty(); });
        give(kNamed, named - kFromEndNamed, [](const RulePlan &) { return true; });
        give(kNamed + 1, kFromEndNamed, [](const RulePlan &) { return true; });
        for (const KindCount &common : kCommonKinds)
            give(common.kind, common.elements, [](const RulePlan &) { return true; });

        const auto has_kind = [](uint8_t kind) {
            return [kind](const RulePlan &plan) {
                return std::ranges::find(plan.string_kinds, kind) != plan.string_kinds.end();
            };
        };
        Plans tailed = Shuffled(has_kind(kNamed));
        for (std::size_t i = 0; i < tails; ++i)
            tailed.at(i)->section_tails = 1;
        constexpr uint8_t kResourceData = 23;
        const std::size_t numbered = room_.Elements(
            1, &Rule::strings, [](const auto &string) { return string.kind == kResourceData && string.index != 0; });
        if (numbered != 0)
            Shuffled(has_kind(kResourceData)).front()->number_resource = true;
        Shuffled([&](const RulePlan &plan) {
            return has_kind(kSection)(plan) && plan.archetype->toolchain == Toolchain::Msvc6 && plan.traits == 0;
        })
            .front()
            ->far_string = true;
    }

    void ChooseMeasures() {
        constexpr uint8_t kSection = 60;
        struct Place {
            RulePlan *plan;
            uint32_t index;
        };
        std::vector<Place> places;
        for (RulePlan *plan : plans_) {
            plan->measure_regions.assign(plan->counts[kMeasureConditions], kSection);
            for (uint32_t i = 0; i < plan->counts[kMeasureConditions]; ++i)
                places.push_back({plan, i});
        }
        random_.Shuffle(places);
        const std::size_t sections = room_.Elements(profile::kIndexedSectionMeasures, &Rule::measure_conditions,
                                                    [](const auto &measure) { return measure.region == kSection; });
        const std::size_t others = places.size() - sections;
        for (std::size_t i = 0; i < others; ++i) {
            RulePlan &plan = *places[i].plan;
            uint8_t region = random_.Pick(kCommonRegions);
            if (plan.IsVisualBasic() && random_.Chance(40))
                region = random_.Pick(kBasicRegions);
            if (plan.IsLibrary() && plan.archetype->toolchain != Toolchain::Packer && random_.Chance(60))
                region = random_.Pick(kLibraryRegions);
            plan.measure_regions[places[i].index] = region;
        }
        for (RulePlan *plan : plans_)
            std::ranges::sort(plan->measure_regions);
    }

    // Rules about files with unnamed sections: together they name exactly the profile's number of empty names.
    void ChooseSectionNames() {
        std::size_t left = room_.Elements(profile::kEmptySectionNames, &Rule::section_names,
                                          [](const auto &name) { return name.name.empty(); });
        const Plans candidates = Shuffled([](const RulePlan &plan) {
            return plan.counts[kSectionNames] > 0 && !plan.many_sections &&
                   (plan.archetype->toolchain == Toolchain::Packer ||
                    plan.archetype->toolchain == Toolchain::Protector) &&
                   std::ranges::none_of(plan.string_kinds, [](uint8_t kind) { return kind == 15 || kind == 16; });
        });
        for (RulePlan *plan : candidates) {
            if (plan->counts[kSectionNames] > left)
                continue;
            plan->blank_names = true;
            left -= plan->counts[kSectionNames];
        }
        if (left != 0)
            throw std::logic_error("no rules for the empty section names are left");
    }

    const RuleSet &written_;
    Room room_;
    Random random_;
    std::vector<Slot> slots_;
    Plans plans_; // those to be generated, in table order
};

} // namespace

std::vector<Slot> PlanTable(const RuleSet &written) {
    return Planner(written).Plan();
}

} // namespace tavrik::generator
