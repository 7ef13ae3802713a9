/* The fast evaluator: all rules of a table on one file, without asking each. */
#ifndef TAVRIK_EVALUATION_RULE_INDEX_H
#define TAVRIK_EVALUATION_RULE_INDEX_H

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/once.h"
#include "evaluation/features.h"
#include "evaluation/filed_rules.h"
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

    /** The positions of the rules that match the file, ascending: those for which Matches is true. The first files are
     * answered without the table of values, since making it takes as long as asking every rule about dozens of files;
     * the same bytes of a file are read with it and without it. With an observer it is made at once. */
    std::vector<uint32_t> Match(Features &features, RuleObserver *observer = nullptr) const;

    /** Makes the table of values now. */
    void Prepare() const;

    /** The number of rules without an exact header value, which are evaluated on every file. */
    std::size_t unfiled() const { return unfiled_.size(); }

private:
    // The search for the strings of some rules in one pass, made when a file first needs it.
    struct Strings {
        base::Once is_made;
        std::vector<std::size_t> first; // of each rule, in the pass
        std::unique_ptr<const StringPass> pass;
    };

    // A rule whose conditions on the headers are met.
    struct Survivor {
        uint32_t position = 0;
        std::chrono::nanoseconds time = {}; // that this took, when it is observed
    };

    bool UsesTable(const RuleObserver *observer) const;
    std::vector<Survivor> MeetingHeader(Features &features, RuleObserver *observer) const;
    void DropWithoutStrings(std::vector<uint32_t> &matches, Features &features, RuleObserver *observer) const;
    const Strings &Made(Strings &strings, std::span<const uint32_t> positions) const;
    bool IsUnfiled(uint32_t position) const { return std::ranges::binary_search(unfiled_, position); }

    std::span<HeuristicRule *const> rules_;
    std::vector<uint32_t> fileable_; // positions of the rules with an exact value that is read with the headers
    FiledRules expensive_;           // those with exact values of other fields only
    std::vector<uint32_t> unfiled_;  // positions of the others

    mutable std::atomic<unsigned> files_ = 0; // asked without the table
    mutable base::Once table_is_made_;
    mutable FiledRules table_; // of fileable_

    mutable Strings unfiled_strings_; // those of unfiled_, which are needed for most files if they have any
    mutable Strings all_strings_;
};

} // namespace tavrik::evaluation

#endif
