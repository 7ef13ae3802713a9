/* Rules on stored features. */
#ifndef TAVRIK_STORE_HUNT_H
#define TAVRIK_STORE_HUNT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "store/segment.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::store {

/** A rule that a file may match. */
struct Hit {
    Row row = 0;
    uint32_t rule = 0;     // its position in the table
    bool is_match = false; // otherwise the file itself must be looked at

    bool operator==(const Hit &) const = default;
};

/** Rules made ready for stored features. Immutable, so that threads can share one. */
class Hunt {
public:
    /** The records, in working form, must outlive the object. */
    explicit Hunt(std::span<HeuristicRule *const> rules);

    /** The hits of a segment, by row and then by rule. A file that a rule matches always has one, and a file with
     * `is_match` matches; others match only perhaps. `is_gone` has a true element for each row that does not count; it
     * may be shorter. Throws Damaged. */
    std::vector<Hit> Search(Segment &segment, const std::vector<bool> &is_gone) const;

    /** The rules that stored features decide: they never must look. */
    std::size_t decided() const { return decided_; }

private:
    // Conditions on one column, one of which must be met.
    struct Filter {
        uint16_t column = 0;
        uint8_t op = 0; // of all values
        std::vector<uint64_t> values;
        uint32_t rank = 0; // filters that rule out more segments, by estimate, come first
    };

    struct PlannedRule {
        uint32_t position = 0;
        std::vector<Filter> filters;
        std::vector<Token> tokens;
        bool is_decided = false; // by header values, sections and traits
    };

    PlannedRule PlanOf(uint32_t position) const;
    static void AddHeaderFilters(PlannedRule &plan, const HeuristicRule &rule);
    static void AddSectionFilters(PlannedRule &plan, const HeuristicRule &rule);
    static bool MayMeet(Segment &segment, const Filter &filter);
    std::vector<Row> Candidates(Segment &segment, const PlannedRule &plan) const;
    std::vector<Row> RowsThatMeet(Segment &segment, const PlannedRule &plan, const std::vector<bool> &is_gone) const;

    std::span<HeuristicRule *const> rules_;
    std::vector<PlannedRule> plans_; // of the rules that ask something
    std::size_t decided_ = 0;
};

} // namespace tavrik::store

#endif
