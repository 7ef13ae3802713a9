// The name tables and word lists after the preparation: texts, references between tables, and their order in the image.
#include <algorithm>
#include <cstring>
#include <set>
#include <string_view>

#include <gtest/gtest.h>

#include "tavrik2/rules/name_tables.h"
#include "tavrik2/rules/preparation.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

struct Table {
    const NameEntry *entries;
    uint32_t count;
    size_t longest;
    size_t shortest;
};

TEST(NameTables, EveryEntryIsATextFollowedByZeros) {
    PrepareDatabase();
    EXPECT_EQ(std::string_view(reinterpret_cast<const char *>(NameTable1[0])), "Activitybi Online Ltd");
    for (const Table &table : {Table{NameTable1, NameTable1Count, 53, 5}, Table{NameTable2, NameTable2Count, 52, 9},
                               Table{NameTable3, NameTable3Count, 35, 8}, Table{NameTable4, NameTable4Count, 47, 9}}) {
        std::set<size_t> lengths;
        for (uint32_t index = 0; index < table.count; ++index) {
            const NameEntry &entry = table.entries[index];
            const auto *end = std::find(std::begin(entry), std::end(entry), 0);
            EXPECT_TRUE(std::all_of(std::begin(entry), end, [](uint8_t byte) { return byte >= ' ' && byte <= '~'; }));
            EXPECT_TRUE(std::all_of(end, std::end(entry), [](uint8_t byte) { return byte == 0; }));
            lengths.insert(static_cast<size_t>(end - entry));
        }
        EXPECT_EQ(*lengths.rbegin(), table.longest);
        EXPECT_EQ(*lengths.begin(), table.shortest);
    }
}

TEST(NameTables, DetectionMapsPointToStartsOfEntries) {
    std::set<ptrdiff_t> first;
    std::set<ptrdiff_t> second;
    std::set<std::string_view> detections{SecondNameDetectionMap[0].detection};
    for (const NameDetection &row : NameDetectionMap) {
        first.insert(row.first_name - NameTable1[0]);
        second.insert(row.second_name - NameTable2[0]);
        const std::string_view detection = row.detection;
        detections.insert(detection);
        EXPECT_TRUE(detection.ends_with(row.gen_flag == 1 ? ".Gen" : ".DC")) << detection;
    }
    EXPECT_EQ(detections.size(), 636u);
    EXPECT_EQ(std::count_if(detections.begin(), detections.end(), [](auto name) { return name.ends_with(".DC"); }),
              201);
    for (const auto &[offsets, used, entries] : {std::tuple(first, 580u, 644), std::tuple(second, 27u, 27)}) {
        EXPECT_EQ(offsets.size(), used);
        EXPECT_GE(*offsets.begin(), 0);
        EXPECT_LT(*offsets.rbegin(), entries * 256);
        for (const ptrdiff_t offset : offsets)
            EXPECT_EQ(offset % 256, 0);
    }
    EXPECT_EQ(static_cast<const void *>(&NameDetectionMapCount), &NameDetectionMap[635]);
    EXPECT_EQ(NameDetectionMapCount, 635u);
    EXPECT_EQ(static_cast<const void *>(&NamePairTableCount), &NamePairTable[20]);
    EXPECT_EQ(static_cast<const void *>(&KeywordsCount), &Keywords[231]);
    EXPECT_EQ(static_cast<const void *>(&ProductWordsCount), &ProductWords[15]);
}

TEST(PackerSignatures, StandInOrderEachBehindItsPattern) {
    const uint8_t *at = PackerSignatures[0]->pattern;
    for (uint32_t index = 0; index < kPackerSignatures; ++index) {
        const PackerSignature &record = *PackerSignatures[index];
        EXPECT_EQ(record.id + 0, index + 1);
        EXPECT_EQ(record.pattern + 0, at);
        EXPECT_EQ(reinterpret_cast<const uint8_t *>(&record), record.pattern + record.pattern_length);
        at = reinterpret_cast<const uint8_t *>(&record + 1);
    }
}

} // namespace
} // namespace tavrik::tests
