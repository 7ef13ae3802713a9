/* The fast evaluator: all rules of a table on one file, without asking each. */
#ifndef TAVRIK_EVALUATION_RULE_INDEX_H
#define TAVRIK_EVALUATION_RULE_INDEX_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include "evaluation/features.h"
#include "evaluation/string_pass.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** Is told how long each rule that was evaluated took. */
class RuleObserver {
public:
    virtual ~RuleObserver() = default;

    /** `rule` is a position in the table. The time is that of its conditions, or of its strings alone. */
    virtual void OnConditions(uint32_t rule, std::chrono::nanoseconds time) = 0;
    virtual void OnStrings(uint32_t rule, std::chrono::nanoseconds time) = 0;
};

/** An index over a rule table. Each rule is filed under the value of one header field that it asks for and that few
 * files have; a file's own values lead to the few rules that can match, and these are decided by the plain
 * evaluator. The strings of those that are left are searched for one by one, or, when that would take longer, those of
 * all rules in one pass over the file. Many threads can share one object. */
class RuleIndex {
public:
    /** The records, in working form, must outlive the object. */
    explicit RuleIndex(std::span<HeuristicRule *const> rules);

    /** The positions of the rules that match the file, ascending: those for which Matches is true. */
    std::vector<uint32_t> Match(Features &features, RuleObserver *observer = nullptr) const;

    /** The number of rules without an exact header value, which are evaluated on every file. */
    std::size_t unfiled() const { return unfiled_.size(); }

private:
    // The rules filed under one value of one field; unused slots have none.
    struct Slot {
        uint64_t key = 0;
        uint32_t first = 0; // in filed_
        uint32_t count = 0;
    };

    using FiledRule = std::pair<uint64_t, uint32_t>; // key and position

    // The search for the strings of all rules, made when a file first needs it.
    struct AllStrings {
        std::vector<std::size_t> first; // of each rule, in the pass; and the number of all
        std::unique_ptr<const StringPass> pass;
    };

    void BuildTable(const std::vector<FiledRule> &filed);
    std::span<const uint32_t> RulesUnder(uint16_t field, uint32_t value) const;
    std::size_t PlaceOf(uint64_t key) const;
    void DropWithoutStrings(std::vector<uint32_t> &matches, Features &features, RuleObserver *observer) const;
    const AllStrings &Strings() const;

    std::span<HeuristicRule *const> rules_;
    std::vector<uint16_t> fields_;    // those that rules are filed under
    std::vector<uint64_t> may_exist_; // a bit for each place, set where a key begins its search
    std::vector<Slot> slots_;         // open addressing; a power of two of them, at most half used
    unsigned shift_ = 0;              // from a hash to its place
    std::vector<uint32_t> filed_;     // positions, grouped by key
    std::vector<uint32_t> unfiled_;   // positions

    mutable std::once_flag strings_are_made_;
    mutable AllStrings strings_;
};

} // namespace tavrik::evaluation

#endif
