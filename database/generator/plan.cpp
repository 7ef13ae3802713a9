#include "database/generator/plan.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "database/generator/names.h"
#include "database/generator/planner.h"
#include "database/profile/profile.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using rules::Rule;
using rules::RuleSet;

// How many rules are for the targets that are neither programs nor libraries.
struct TargetCount {
    uint32_t target;
    std::size_t rules;
};
constexpr TargetCount kOtherTargets[] = {{2, 30},  {3, 6},   {4, 12}, {5, 25},  {8, 28},
                                         {24, 12}, {72, 14}, {80, 9}, {144, 9}, {192, 6}};

constexpr std::size_t kBasicWithoutThreadCount = 24; // Visual Basic rules that do not test it
constexpr uint32_t kLongestRun = 15;                 // rules of one family that follow each other

} // namespace

std::vector<Slot> Planner::Plan() {
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

// Ascending ids, then five of them set back: the second carriers of the doubles and three others.
void Planner::PlaceIds() {
    constexpr uint32_t kSetBack[] = {611, 2930, 7703};
    constexpr std::size_t kFartherOn[] = {1290, 260, 905}; // places after their own
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
        slots_[i].plan.seed = Mix(kTableSeed ^ (i << 20));
        if (slots_[i].written == nullptr)
            plans_.push_back(&slots_[i].plan);
    }
}

// Families of 1 to kLongestRun rules that follow each other, so that the numbers of the targets come out.
void Planner::ChooseArchetypes() {
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
            const auto length = static_cast<uint32_t>(std::min<std::size_t>(rules, random_.Between(1, kLongestRun)));
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
            archetype.family.empty() ? FamilyWord(kTableSeed + family) : std::string(archetype.family);
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

std::size_t Planner::VisualBasicTests(std::size_t whole) const {
    return room_.Elements(whole, &Rule::header_conditions, [](const rules::HeaderCondition &condition) {
        return condition.field == rules::header_field::kVbThreadCount;
    });
}

void Planner::ChooseVisualBasicTests() {
    const auto choose = [&](CountedTest RulePlan::*test, uint16_t field, uint32_t usual, std::size_t whole,
                            std::size_t whole_usual) {
        const auto tests = [&](const rules::HeaderCondition &condition) { return condition.field == field; };
        const std::size_t all = room_.Elements(whole, &Rule::header_conditions, tests);
        const std::size_t others =
            all - room_.Elements(whole_usual, &Rule::header_conditions, [&](const rules::HeaderCondition &condition) {
                return tests(condition) && condition.value == usual;
            });
        Plans chosen = Shuffled([](const RulePlan &plan) { return plan.IsVisualBasic(); });
        for (std::size_t i = 0; i < all; ++i)
            chosen.at(i)->*test = i < others ? CountedTest::Other : CountedTest::Usual;
    };
    choose(&RulePlan::vb_thread_count, rules::header_field::kVbThreadCount, 1, profile::kVbThreadCounts,
           profile::kVbThreadCountsOne);
    choose(&RulePlan::vb_version, rules::header_field::kVbProjectVersion, 500, profile::kVbVersions,
           profile::kVbVersions500);
}

std::vector<Slot> PlanTable(const RuleSet &written) {
    return Planner(written).Plan();
}

} // namespace tavrik::generator
