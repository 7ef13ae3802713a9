// The name tables and word lists after the preparation: texts, references between tables, and their order in the image.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string_view>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tavrik2/rules/name_tables.h"
#include "tavrik2/rules/preparation.h"
#include "tests/support/golden.h"

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
    PrepareDatabase(); // changes nothing
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
        // Stored, blanks are '#', which no name holds.
        const auto *bytes = table.entries[0];
        const auto *end = bytes + table.count * sizeof(NameEntry);
        EXPECT_EQ(std::count(bytes, end, '#'), 0);
        EXPECT_GT(std::count(bytes, end, ' '), 0);
    }
}

TEST(NameTables, DetectionMapsPointToStartsOfEntries) {
    std::set<ptrdiff_t> first;
    std::set<ptrdiff_t> second;
    std::set<std::string_view> detections;
    const auto add = [&](const NameDetection &row) {
        const std::string_view detection = row.detection;
        detections.insert(detection);
        EXPECT_TRUE(detection.starts_with("PUA.")) << detection;
        EXPECT_TRUE(detection.ends_with(".Gen") || detection.ends_with(".DC")) << detection;
        EXPECT_EQ(row.gen_flag, detection.ends_with(".Gen") ? 1u : 0u) << detection;
    };
    for (const NameDetection &row : NameDetectionMap) {
        first.insert(row.first_name - NameTable1[0]);
        second.insert(row.second_name - NameTable2[0]);
        add(row);
    }
    const NameDetection &last = SecondNameDetectionMap[0];
    add(last);
    for (const auto &[offset, entries] :
         {std::pair(last.first_name - NameTable1[0], 644), {last.second_name - NameTable2[0], 27}}) {
        EXPECT_EQ(offset % 256, 0);
        EXPECT_TRUE(0 <= offset && offset < entries * 256) << offset;
    }
    EXPECT_EQ(detections.size(), 636u);
    for (const GoldenLine &line : ReadGolden("name_tables.txt")) {
        if (line.words[0] == "detections" && line.words[1] == "example") {
            EXPECT_TRUE(detections.contains(GoldenText(line.words[2]))) << line.words[2];
        } else if (line.words[0] == "NameDetectionMap2" && line.words[1] == "detection_of_row_0") {
            EXPECT_EQ(last.detection, GoldenText(line.words[2]));
        }
    }
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
    EXPECT_EQ(static_cast<const void *>(&SecondNameDetectionMapCount), &SecondNameDetectionMap[1]);
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
    // So do the pointers, at the next boundary of eight bytes.
    const ptrdiff_t gap = reinterpret_cast<const uint8_t *>(PackerSignatures) - at;
    EXPECT_TRUE(0 <= gap && gap < 8) << gap;
}

// The typed lines "thing property value" of one thing.
std::map<std::string, std::string> Typed(const std::string &thing) {
    std::map<std::string, std::string> values;
    for (const GoldenLine &line : ReadGolden("name_tables.txt"))
        if (line.words[0] == thing && line.words.size() == 3)
            values[line.words[1]] = line.words[2];
    return values;
}

std::string Quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

TEST(PackerSignatures, AreAsTyped) {
    std::map<std::string, int> packers;
    std::set<int> parameters;
    std::set<int> kinds;
    int longest = 0;
    for (const PackerSignature *record : PackerSignatures) {
        ++packers[Quoted(record->packer)];
        parameters.insert(record->pattern_param);
        kinds.insert(record->pattern_kind);
        longest = std::max<int>(longest, record->pattern_length);
        EXPECT_EQ(record->one, 1);
    }
    const std::map<std::string, std::string> typed = Typed("PackerSignature");
    EXPECT_EQ(std::size(PackerSignatures), GoldenNumber(typed.at("records")));
    EXPECT_EQ(packers.size(), GoldenNumber(typed.at("distinct_packers")));
    EXPECT_EQ(fmt::format("..{}", longest), typed.at("pattern_length"));
    EXPECT_EQ(fmt::format("{}..{}", *parameters.begin(), *parameters.rbegin()), typed.at("pattern_param"));
    EXPECT_EQ(kinds, (std::set<int>{0, 2}));
    for (const auto &[packer, count] : Typed("packer"))
        EXPECT_TRUE(count == "1.." ? packers[packer] >= 1 : packers[packer] == GoldenNumber(count)) << packer;
}

TEST(NameTables, SizesAreAsTyped) {
    const auto expect = [](const char *thing, const char *property, uint32_t size) {
        EXPECT_EQ(std::to_string(size), Typed(thing)[property]) << thing;
    };
    expect("NameTable", "entry_size", sizeof(NameEntry));
    expect("NameTable1", "entries", NameTable1Count);
    expect("NameTable2", "entries", NameTable2Count);
    expect("NameTable3", "entries", NameTable3Count);
    expect("NameTable4", "entries", NameTable4Count);
    expect("NameDetectionMap", "rows", NameDetectionMapCount);
    expect("NameDetectionMap2", "rows", SecondNameDetectionMapCount);
    expect("NamePairTable", "rows", NamePairTableCount);
    expect("keywords", "pointers", KeywordsCount);
    expect("product_words", "pointers", ProductWordsCount);
    expect("module_names", "pointers", std::size(ModuleNames));
    expect("list_table", "rows", std::size(WordListTable));
    expect("NameDetectionRow", "size", sizeof(NameDetection));
    expect("NamePairRow", "size", sizeof(NamePair));
    expect("PackerSignature", "size", sizeof(PackerSignature));
}

// The lines of the source that begin a record: number, packer, jumps to follow, kind.
TEST(PackerSignatures, SayWhatTheirSourceSays) {
    uint32_t found = 0;
    for (const GoldenLine &line : ReadGolden("packers.txt")) {
        if (line.indent != 0 || !IsGoldenNumber(line.words[0]))
            continue;
        const PackerSignature &record = *PackerSignatures[found++];
        EXPECT_EQ(record.id + 0, GoldenNumber(line.words[0]));
        EXPECT_EQ(record.packer, GoldenText(line.words[1]));
        EXPECT_EQ(record.pattern_param, GoldenNumber(line.words[2])) << record.id;
        EXPECT_EQ(record.pattern_kind, GoldenNumber(line.words[3])) << record.id;
    }
    EXPECT_EQ(found, kPackerSignatures);
}

// Lists of texts at their positions, "last" being the last one.
template <typename Text>
void ExpectTexts(const std::string &thing, uint32_t count, Text text) {
    const std::map<std::string, std::string> typed = Typed(thing);
    EXPECT_FALSE(typed.empty()) << thing;
    for (const auto &[position, wanted] : typed) {
        if (position != "last" && !IsGoldenNumber(position))
            continue;
        const auto index = position == "last" ? count - 1 : static_cast<uint32_t>(GoldenNumber(position));
        EXPECT_EQ(Quoted(text(index)), wanted) << thing << " " << index;
    }
}

TEST(WordLists, AreAsTyped) {
    ExpectTexts("module_name", kModuleNames, [](uint32_t index) { return ModuleNames[index]; });
    ExpectTexts("keyword", kKeywords, [](uint32_t index) { return Keywords[index]; });
    ExpectTexts("product_word", kProductWords, [](uint32_t index) { return ProductWords[index]; });
    for (uint32_t list = 0; list < kWordLists; ++list) {
        const std::string thing = fmt::format("list_{}", list + 1);
        EXPECT_EQ(WordListTable[list].count + 0, GoldenNumber(Typed(thing).at("pointers")));
        ExpectTexts(thing, WordListTable[list].count, [&](uint32_t index) { return WordListTable[list].words[index]; });
    }
    for (const GoldenLine &line : ReadGolden("name_tables.txt"))
        if (line.words[0] == "keywords" && line.words[1] == "holds") {
            EXPECT_TRUE(std::any_of(std::begin(Keywords), std::end(Keywords), [&](const char *word) {
                return Quoted(word) == line.words[2];
            })) << line.words[2];
        }
    for (const GoldenLine &line : ReadGolden("name_tables.txt"))
        if (line.words[0] == "pair") {
            const NamePair &pair = NamePairTable[GoldenNumber(line.words[1])];
            EXPECT_EQ(pair.first_name, NameTable3[GoldenNumber(line.words[2])]) << line.words[1];
            EXPECT_EQ(pair.second_name, NameTable4[GoldenNumber(line.words[3])]) << line.words[1];
        }
}

TEST(NameSlots, AreAsTyped) {
    const auto *functions = reinterpret_cast<const char *>(FunctionNames);
    const auto *sections = reinterpret_cast<const char *>(SectionNames);
    const std::map<std::string, std::string> function_slots = Typed("function_slots");
    const std::map<std::string, std::string> section_slots = Typed("section_slots");
    const auto function_slot = static_cast<uint32_t>(GoldenNumber(function_slots.at("slot_size")));
    const auto section_slot = static_cast<uint32_t>(GoldenNumber(section_slots.at("slot_size")));
    EXPECT_EQ(sizeof FunctionNames, function_slot * GoldenNumber(function_slots.at("slots")));
    EXPECT_EQ(sizeof SectionNames, section_slot * GoldenNumber(section_slots.at("slots")));
    ExpectTexts("function_slot", kFunctionNames, [&](uint32_t index) {
        return std::string(functions + index * function_slot,
                           strnlen(functions + index * function_slot, function_slot));
    });
    ExpectTexts("section_slot", kSectionNames, [&](uint32_t index) {
        return std::string(sections + index * section_slot, strnlen(sections + index * section_slot, section_slot));
    });
}

} // namespace
} // namespace tavrik::tests
