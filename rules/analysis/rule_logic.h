/* What can be said of a rule's conditions without a file: which of them no file meets, and which rules match wherever
 * another does. What it claims is true; it does not find everything that is true. */
#ifndef TAVRIK_RULES_ANALYSIS_RULE_LOGIC_H
#define TAVRIK_RULES_ANALYSIS_RULE_LOGIC_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "rules/analysis/name_logic.h"
#include "rules/analysis/value_set.h"
#include "rules/expression.h"
#include "rules/model.h"

namespace tavrik::rules::analysis {

/** Why no file meets a condition, a string is never found, or (Redundant) a condition adds nothing to others. */
struct Conflict {
    enum class Kind : uint8_t { Value, Name, String, Redundant };

    Kind kind = Kind::Value;
    ElementOf at;
    std::optional<ElementOf> with; // the other condition, when it takes two
};

class RuleLogic {
public:
    /** The rule must outlive the object. */
    explicit RuleLogic(const Rule &rule);

    const Rule &rule() const { return rule_; }

    const std::vector<Conflict> &conflicts() const { return conflicts_; }

    /** No file matches the rule. (A string that is never found need not mean that.) */
    bool IsNeverMet() const { return is_never_met_; }

    /** The rule's conditions hold for every PE file. */
    bool IsAlwaysMet() const;

    /** Every file that this rule matches is matched by `other`. Neither may be a rule that is never met. */
    bool Implies(const RuleLogic &other) const;

    /** Marks for an index: a rule that implies another has at least the marks that the other needs. Sorted. */
    const std::vector<uint64_t> &marks() const { return marks_; }
    const std::vector<uint64_t> &needed_marks() const { return needed_marks_; }

private:
    using Key = uint64_t; // one value of a file

    // What an element asks of a single value.
    struct Asked {
        Key key;
        uint64_t value;
        std::optional<uint64_t> largest; // that the value can be; nothing when no file has it
        bool is_single = true;           // not one of several that the element may be met by
    };

    struct Constraint {
        Key key;
        ValueSet set;
        ElementOf at;
        bool is_too_wide;         // the value is beyond what the file's field can hold
        bool opens_range = false; // a lower bound that the next constraint, of the same row, closes
    };

    void CollectConstraints();
    void CollectImplied();
    template <typename Element, typename Describe>
    void Constrain(const std::vector<Element> &list, Item item, Describe describe);
    void CollectMagic();
    void Combine();
    void FindRedundant();
    void FindWindowConflicts();
    void Report(Conflict::Kind kind, ElementOf at, std::optional<ElementOf> with = std::nullopt);
    std::optional<uint64_t> LargestRegion(const StringFeature &string) const;
    void CollectMarks();

    bool ImpliesValues(const RuleLogic &other) const;
    bool ImpliesStrings(const RuleLogic &other) const;

    const Rule &rule_;
    std::vector<Constraint> constraints_; // in the order of the rule; of a run of alternatives one
    std::size_t written_ = 0;             // the first of them are conditions themselves; the others are implied
    std::map<Key, ValueSet> values_;      // what they leave, without those that every PE file meets
    uint32_t traits_ = 0;                 // those without a constraint
    std::vector<Conflict> conflicts_;
    bool is_never_met_ = false;
    std::optional<std::vector<LetterSet>> ways_; // the sets of strings that suffice; nothing when they are too many
    std::vector<uint64_t> marks_;
    std::vector<uint64_t> needed_marks_;
};

} // namespace tavrik::rules::analysis

#endif
