// Sets of numbers, beside the same sets written out.
#include <optional>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "rules/analysis/value_set.h"

namespace tavrik::tests {
namespace {

using rules::Operator;
using rules::analysis::ValueSet;

constexpr uint64_t kLargest = 11; // of the numbers that the sets are made of
constexpr uint64_t kBeyond = 20;

using Numbers = std::set<uint64_t>;

struct Both {
    ValueSet set;
    Numbers numbers;
};

bool Meets(Operator op, uint64_t x, uint64_t value) {
    switch (op) {
    case Operator::Equal:
        return x == value;
    case Operator::NotEqual:
        return x != value;
    case Operator::Less:
        return x < value;
    case Operator::Greater:
        return x > value;
    case Operator::AtMost:
        return x <= value;
    case Operator::AtLeast:
        return x >= value;
    case Operator::HasBits:
        return (x & value) == value;
    }
    return false;
}

// Every operator with every value, some sets of single numbers, and their intersections.
std::vector<Both> AllSets() {
    std::vector<Both> sets;
    for (int op = 1; op <= 7; ++op) {
        for (uint64_t value = 0; value <= kLargest + 2; ++value) {
            Numbers numbers;
            for (uint64_t x = 0; x <= kLargest; ++x)
                if (Meets(static_cast<Operator>(op), x, value))
                    numbers.insert(x);
            sets.push_back({ValueSet::Meeting(static_cast<Operator>(op), value, kLargest), numbers});
        }
    }
    for (const std::vector<uint64_t> &values :
         {std::vector<uint64_t>{}, {5}, {7, 3, 3}, {9, 1, 2, 10, 11, 4}, {0, 2, 4, 6}, {6, 5, 4}})
        sets.push_back({ValueSet::Of(values), Numbers(values.begin(), values.end())});
    return sets;
}

void ExpectSame(const ValueSet &set, const Numbers &numbers) {
    ASSERT_EQ(set.IsEmpty(), numbers.empty());
    for (uint64_t x = 0; x <= kBeyond; ++x)
        ASSERT_EQ(set.Contains(x), numbers.contains(x)) << x;
    ASSERT_EQ(set.Single(), numbers.size() == 1 ? std::optional(*numbers.begin()) : std::nullopt);
    if (!numbers.empty()) {
        ASSERT_EQ(set.Least(), *numbers.begin());
        ASSERT_GE(set.Greatest(), *numbers.rbegin()); // bits above it may be free
    }
}

TEST(ValueSet, IsTheSetWrittenOut) {
    const std::vector<Both> sets = AllSets();
    for (const Both &left : sets) {
        ExpectSame(left.set, left.numbers);
        for (const Both &right : sets) {
            Numbers both;
            for (const uint64_t x : left.numbers)
                if (right.numbers.contains(x))
                    both.insert(x);
            ExpectSame(left.set.And(right.set), both);
            ASSERT_EQ(left.set.IsWithin(right.set), both == left.numbers);
        }
    }
}

TEST(ValueSet, EndsAtTheLargestNumbers) {
    constexpr uint64_t kMost = UINT64_MAX;
    EXPECT_EQ(ValueSet(kMost, kMost).Single(), kMost);
    EXPECT_EQ(ValueSet::Meeting(Operator::NotEqual, kMost, kMost).Greatest(), kMost - 1);
    EXPECT_TRUE(ValueSet::Meeting(Operator::Greater, kMost, kMost).IsEmpty());
    EXPECT_EQ(ValueSet::Meeting(Operator::HasBits, kMost, kMost).Single(), kMost);
    EXPECT_EQ(ValueSet::Meeting(Operator::HasBits, uint64_t{1} << 63, kMost).Least(), uint64_t{1} << 63);
    EXPECT_TRUE(ValueSet(3, 2).IsEmpty());
    EXPECT_EQ(ValueSet::Of(std::vector<uint64_t>{0, kMost}).Greatest(), kMost);
    EXPECT_FALSE(ValueSet::Of(std::vector<uint64_t>{0, kMost}).Contains(1));
}

TEST(ValueSet, LargeSetsAreComparedByTheirRangesAndBits) {
    const ValueSet wide(0, 100000);
    EXPECT_TRUE(ValueSet(10, 90000).IsWithin(wide));
    EXPECT_TRUE(wide.IsWithin(wide));
    EXPECT_FALSE(ValueSet(0, 100001).IsWithin(wide));
    EXPECT_FALSE(wide.IsWithin(ValueSet(1, 100000)));
    EXPECT_TRUE(
        ValueSet::Meeting(Operator::HasBits, 6, 50000).IsWithin(ValueSet::Meeting(Operator::HasBits, 4, 50000)));
    EXPECT_FALSE(
        ValueSet::Meeting(Operator::HasBits, 4, 50000).IsWithin(ValueSet::Meeting(Operator::HasBits, 6, 50000)));
    const ValueSet gap = ValueSet::Meeting(Operator::NotEqual, 50000, 100000);
    EXPECT_FALSE(wide.IsWithin(gap));
    EXPECT_TRUE(gap.IsWithin(wide));
    EXPECT_TRUE(ValueSet(0, 49999).IsWithin(gap));
    EXPECT_TRUE(ValueSet(50001, 100000).IsWithin(gap));
}

} // namespace
} // namespace tavrik::tests
