#include "rules/analysis/value_set.h"

#include <algorithm>
#include <bit>

namespace tavrik::rules::analysis {

namespace {

constexpr uint64_t kMostEnumerated = 4096;

// The least number from `value` on that has all of `bits`.
uint64_t WithBits(uint64_t value, uint64_t bits) {
    const uint64_t missing = bits & ~value;
    if (missing == 0)
        return value;
    // Set the highest missing bit; what is below it is then free, and least with the wanted bits alone.
    const uint64_t highest = std::bit_floor(missing);
    return ((value | highest) & ~(highest - 1)) | (bits & (highest - 1));
}

} // namespace

ValueSet::ValueSet(uint64_t first, uint64_t last) {
    if (first <= last)
        ranges_.push_back({first, last});
}

ValueSet ValueSet::Of(std::span<const uint64_t> values) {
    std::vector<uint64_t> sorted(values.begin(), values.end());
    std::ranges::sort(sorted);
    ValueSet set = None();
    for (const uint64_t value : sorted) {
        if (!set.ranges_.empty() && value - set.ranges_.back().last <= 1)
            set.ranges_.back().last = value;
        else
            set.ranges_.push_back({value, value});
    }
    return set;
}

ValueSet ValueSet::Meeting(Operator op, uint64_t value, uint64_t largest) {
    const ValueSet all(0, largest);
    switch (op) {
    case Operator::Equal:
        return all.And({value, value});
    case Operator::NotEqual: {
        ValueSet set = value == 0 ? None() : all.And({0, value - 1});
        if (value < largest)
            set.ranges_.push_back({value + 1, largest});
        return set;
    }
    case Operator::Less:
        return value == 0 ? None() : all.And({0, value - 1});
    case Operator::Greater:
        return value >= largest ? None() : all.And({value + 1, largest});
    case Operator::AtMost:
        return all.And({0, value});
    case Operator::AtLeast:
        return all.And({value, largest});
    case Operator::HasBits: {
        ValueSet set = all;
        set.bits_ = value;
        set.Tighten();
        return set;
    }
    }
    return None();
}

ValueSet ValueSet::And(const ValueSet &other) const {
    ValueSet both = None();
    both.bits_ = bits_ | other.bits_;
    auto left = ranges_.begin();
    auto right = other.ranges_.begin();
    while (left != ranges_.end() && right != other.ranges_.end()) {
        const Range common = {std::max(left->first, right->first), std::min(left->last, right->last)};
        if (common.first <= common.last)
            both.ranges_.push_back(common);
        ++(left->last < right->last ? left : right);
    }
    both.Tighten();
    return both;
}

void ValueSet::Tighten() {
    for (Range &range : ranges_)
        range.first = WithBits(range.first, bits_);
    std::erase_if(ranges_, [](const Range &range) { return range.first > range.last; });
}

std::optional<uint64_t> ValueSet::Single() const {
    if (ranges_.size() != 1)
        return std::nullopt;
    const Range &range = ranges_.front();
    if (range.first == range.last) // also the greatest number of all
        return range.first;
    return WithBits(range.first + 1, bits_) <= range.last ? std::nullopt : std::optional(range.first);
}

bool ValueSet::Contains(uint64_t value) const {
    return (value & bits_) == bits_ && std::ranges::any_of(ranges_, [value](const Range &range) {
               return range.first <= value && value <= range.last;
           });
}

bool ValueSet::IsWithin(const ValueSet &other) const {
    return std::ranges::all_of(ranges_, [&](const Range &range) {
        if (range.last - range.first < kMostEnumerated) {
            for (uint64_t value = range.first;; ++value) {
                if ((value & bits_) == bits_ && !other.Contains(value))
                    return false;
                if (value == range.last)
                    return true;
            }
        }
        return (other.bits_ & ~bits_) == 0 && std::ranges::any_of(other.ranges_, [&](const Range &wider) {
                   return wider.first <= range.first && range.last <= wider.last;
               });
    });
}

uint64_t ValueSet::Greatest() const {
    return ranges_.back().last;
}

} // namespace tavrik::rules::analysis
