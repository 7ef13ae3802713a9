// The rule database's way from its stored to its working form.
#include <cstring>
#include <functional>

#include <gtest/gtest.h>

#include "tavrik2/rules/preparation.h"
#include "tests/support/recording_stream.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

struct FlagSource {
    size_t offset;
    uint64_t value;
    uint8_t flag;
};

// Every field that sets a flag, with a value that a narrower or signed reading would lose.
constexpr FlagSource kFlagSources[] = {
    {offsetof(HeuristicRule, header_conditions.count), 0x100, 1},
    {offsetof(HeuristicRule, section_conditions.count), 0x10000, 1},
    {offsetof(HeuristicRule, section_names.count), 0x80000000, 1},
    {offsetof(HeuristicRule, indexed_conditions.count), 0x100, 1},
    {offsetof(HeuristicRule, import_modules.count), 1, 1},
    {offsetof(HeuristicRule, import_functions.count), 2, 1},
    {offsetof(HeuristicRule, export_module_names.count), 1, 1},
    {offsetof(HeuristicRule, export_functions.count), 0x100, 1},
    {offsetof(HeuristicRule, resource_entries.count), 0x100, 1},
    {offsetof(HeuristicRule, resource_type_entries.count), 0x100, 1},
    {offsetof(HeuristicRule, resource_strings.count), 0x100, 1},
    {offsetof(HeuristicRule, secondary_conditions.count), 0x100, 1},
    {offsetof(HeuristicRule, attribute_b), 0x80000000, 1},
    {offsetof(HeuristicRule, measure_conditions.count), 0x100, 2},
    {offsetof(HeuristicRule, object_names.count), 0x100, 2},
    {offsetof(HeuristicRule, member_names.count), 0x100, 2},
    {offsetof(HeuristicRule, reserved), uint64_t{1} << 63, 2},
    // These say nothing.
    {offsetof(HeuristicRule, attribute_a), 0xFFFFFFFF, 0},
    {offsetof(HeuristicRule, rule_id), 0xFFFFFFFF, 0},
    {offsetof(HeuristicRule, detection_name), 0xFFFFFFFF, 0},
};

TEST(PrepareRules, EveryFieldSetsItsFlagAndNothingElseChanges) {
    for (const FlagSource &source : kFlagSources) {
        HeuristicRule rule = {};
        const size_t width = source.offset == offsetof(HeuristicRule, reserved) ? 8 : 4;
        std::memcpy(reinterpret_cast<uint8_t *>(&rule) + source.offset, &source.value, width);
        HeuristicRule expected = rule;
        expected.feature_flags = source.flag;
        rule.feature_flags = 0xFF; // the stored value is discarded
        HeuristicRule *const table[] = {&rule};
        EXPECT_EQ(PrepareRules(table, 1), 1);
        EXPECT_EQ(Bytes(rule), Bytes(expected)) << "field at byte " << source.offset;
    }
}

TEST(PrepareRules, StringsLoseThreeFromEachByteOfTheirLength) {
    uint8_t first[] = {0x02, 0x03, 'd', 'd'};
    uint8_t second[] = {'d', 'd'};
    uint8_t empty[] = {'d'};
    std::string longest(255, 'd');
    StringFeature features[4] = {};
    for (StringFeature &feature : features)
        std::memset(feature.mask, 0x55, sizeof feature.mask);
    features[0].bytes = first;
    features[0].length = 3;
    features[1].bytes = empty;
    features[2].bytes = second;
    features[2].length = 2;
    features[3].bytes = reinterpret_cast<uint8_t *>(longest.data());
    features[3].length = 255;
    const std::string before = Bytes(features);
    HeuristicRule rules[2] = {};
    rules[1].strings = {features, 4};
    HeuristicRule *const table[] = {&rules[0], &rules[1]};

    EXPECT_EQ(PrepareRules(nullptr, 2), 0);
    EXPECT_EQ(PrepareRules(table, 0), 1);
    EXPECT_EQ(PrepareRules(table, -1), 1);
    EXPECT_EQ(Bytes(first), "\x02\x03"
                            "dd");

    EXPECT_EQ(PrepareRules(table, 2), 1);
    EXPECT_EQ(Bytes(first), std::string("\xFF\0"
                                        "ad",
                                        4));
    EXPECT_EQ(Bytes(empty), "d");
    EXPECT_EQ(Bytes(second), "aa");
    EXPECT_EQ(longest, std::string(255, 'a'));
    EXPECT_EQ(Bytes(features), before);
    EXPECT_EQ(rules[0].feature_flags, 0);
    EXPECT_EQ(rules[1].feature_flags, FEATURE_CONTENT);
}

TEST(DescrambleNameTable, EntriesEndAtTheirFirstZero) {
    NameEntry table[4] = {};
    std::memcpy(table[0], "dg\0dg", 5);
    std::memcpy(table[1], "\0dg", 3);
    std::memset(table[2], 0x02, sizeof table[2]); // full to the last byte, without a terminator
    std::memcpy(table[3], "dg", 2);
    const std::string before = Bytes(table);
    DescrambleNameTable(table, 0);
    DescrambleNameTable(table, -1);
    EXPECT_EQ(Bytes(table), before);
    DescrambleNameTable(table, 3);
    EXPECT_EQ(Bytes(table[0]).substr(0, 6), std::string("ad\0dg\0", 6));
    EXPECT_EQ(Bytes(table[1]).substr(0, 4), std::string("\0dg\0", 4));
    EXPECT_EQ(Bytes(table[2]), std::string(256, '\xFF'));
    EXPECT_EQ(Bytes(table[3]).substr(0, 3), std::string("dg\0", 3));
}

TEST(DetectionInfo, NeedsBothSlots) {
    HeuristicRule *const *table = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(HeurGetDetectionInfo(nullptr, &count), 0u);
    EXPECT_EQ(HeurGetDetectionInfo(&table, nullptr), 0u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(count, 77u);
    ASSERT_EQ(HeurGetDetectionInfo(&table, &count), 1u);
    std::string cleanable;
    for (uint32_t index = 0; index < count; ++index) {
        const uint32_t id = table[index]->rule_id;
        if (id == 147 || id == 173 || id == 175)
            cleanable += std::string(table[index]->detection_name) + " ";
    }
    EXPECT_EQ(cleanable, "TrojanPWS.Lolyda.AT5 Worm.Autorun.LD4 TrojanDownloader.VB.ac3 ");
}

} // namespace
} // namespace tavrik::tests
