/* Decides what each rule of the table has. The steps draw from one random sequence, so their order is part of the
 * database. */
#ifndef TAVRIK_DATABASE_GENERATOR_PLANNER_H
#define TAVRIK_DATABASE_GENERATOR_PLANNER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "database/generator/plan.h"
#include "database/generator/random.h"
#include "rules/model.h"

namespace tavrik::generator {

/** attribute_a of the two targets that most rules are for. */
inline constexpr uint32_t kProgramTarget = 1;
inline constexpr uint32_t kLibraryTarget = 0;

/** Seeds the table's random sequence, and with a rule's position the rule's own. */
inline constexpr uint64_t kTableSeed = 0x7441765269C6;

/** What the hand-written rules use up of each count. */
struct Room {
    explicit Room(const rules::RuleSet &written) : written_(written) {}

    template <typename Matches>
    std::size_t Rules(std::size_t whole, Matches matches) const {
        return Rest(whole, static_cast<std::size_t>(std::ranges::count_if(written_.rules, matches)));
    }

    template <typename Element, typename Matches>
    std::size_t Elements(std::size_t whole, std::vector<Element> rules::Rule::*list, Matches matches) const {
        std::size_t used = 0;
        for (const rules::Rule &rule : written_.rules)
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
    const rules::RuleSet &written_;
};

/** Plans the table around hand-written rules, which are borrowed. */
class Planner {
public:
    explicit Planner(const rules::RuleSet &written) : written_(written), room_(written), random_(kTableSeed) {}

    /** The table. To be called once. Throws as PlanTable() does. */
    std::vector<Slot> Plan();

private:
    using Plans = std::vector<RulePlan *>;

    // The table: ids, archetypes and families (plan.cpp).
    void PlaceIds();
    void ChooseArchetypes();
    std::size_t VisualBasicTests(std::size_t whole) const;
    void ChooseVisualBasicTests();

    // How many elements each rule has of each list (plan_lists.cpp).
    static std::size_t RulesLeft(const rules::RuleSet &written, List list);
    std::size_t ElementsLeft(List list) const;
    void Share(List list, const Plans &users, std::size_t elements, uint32_t smallest, uint32_t most,
               bool first_largest);
    void Share(List list, Plans users, uint32_t smallest, uint32_t most);
    void ShareContentLists();
    void ShareStrings(Plans users);
    void ShareStructureLists();
    void ShareImports();
    void ShareExports();
    void ShareResources();
    void ChooseStringKeys(Plans &users);
    void ShareVisualBasicLists();
    void ShareHeaders();

    // What the elements are (plan_elements.cpp).
    void ChooseTraits();
    void ChooseExpressions();
    void ChooseStringKinds();
    void ChooseMeasures();
    void ChooseSectionNames();

    template <typename Matches>
    Plans Shuffled(Matches matches) {
        Plans chosen;
        for (RulePlan *plan : plans_)
            if (matches(*plan))
                chosen.push_back(plan);
        random_.Shuffle(chosen);
        return chosen;
    }

    const rules::RuleSet &written_;
    Room room_;
    Random random_;
    std::vector<Slot> slots_;
    Plans plans_; // those to be generated, in table order
};

} // namespace tavrik::generator

#endif
