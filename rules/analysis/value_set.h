/* Sets of numbers, as conditions on one value of a file describe them. */
#ifndef TAVRIK_RULES_ANALYSIS_VALUE_SET_H
#define TAVRIK_RULES_ANALYSIS_VALUE_SET_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "rules/model.h"

namespace tavrik::rules::analysis {

/** The numbers of some ranges that have certain bits set. All operations but IsWithin are exact. */
class ValueSet {
public:
    /** The numbers from `first` to `last`. */
    ValueSet(uint64_t first, uint64_t last);

    /** No number. */
    static ValueSet None() { return {1, 0}; }

    /** The numbers among these. */
    static ValueSet Of(std::span<const uint64_t> values);

    /** Those of the numbers from 0 to `largest` that meet an operator and a value. */
    static ValueSet Meeting(Operator op, uint64_t value, uint64_t largest);

    /** The numbers in both sets. */
    ValueSet And(const ValueSet &other) const;

    bool IsEmpty() const { return ranges_.empty(); }

    /** The number, if there is just one. */
    std::optional<uint64_t> Single() const;

    /** True only when every number of this set is in `other`. May be false nevertheless where many numbers would have
     * to be compared one by one. */
    bool IsWithin(const ValueSet &other) const;

    bool Contains(uint64_t value) const;

    /** The least and the greatest number of a set that is not empty. */
    uint64_t Least() const { return ranges_.front().first; }
    uint64_t Greatest() const;

private:
    struct Range {
        uint64_t first;
        uint64_t last;
    };

    void Tighten();

    std::vector<Range> ranges_; // ascending, apart; each begins with a number that has the bits
    uint64_t bits_ = 0;
};

} // namespace tavrik::rules::analysis

#endif
