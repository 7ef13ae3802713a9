// The generator's small parts: random numbers, names, expressions, contents.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <set>

#include <gtest/gtest.h>

#include "database/generator/content.h"
#include "database/generator/expressions.h"
#include "database/generator/names.h"
#include "database/generator/random.h"
#include "rules/expression.h"

namespace tavrik::tests {
namespace {

using generator::Content;
using generator::Mark;
using generator::Random;

TEST(GeneratorRandom, StaysWithinItsBoundsAndReachesThem) {
    Random random(5);
    std::set<uint32_t> below;
    std::set<uint32_t> between;
    std::size_t chances = 0;
    for (int i = 0; i < 4000; ++i) {
        below.insert(random.Below(7U));
        between.insert(random.Between(100, 104));
        chances += random.Chance(25) ? 1U : 0U;
        EXPECT_FALSE(random.Chance(0));
        EXPECT_TRUE(random.Chance(100));
    }
    EXPECT_EQ(below, (std::set<uint32_t>{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(between, (std::set<uint32_t>{100, 101, 102, 103, 104}));
    EXPECT_NEAR(static_cast<double>(chances), 1000, 120);
    EXPECT_EQ(Random(9).Next(), Random(9).Next());
    EXPECT_NE(Random(9).Next(), Random(10).Next());
    std::vector<int> values(50);
    std::iota(values.begin(), values.end(), 0);
    std::vector<int> shuffled = values;
    random.Shuffle(shuffled);
    EXPECT_NE(shuffled, values);
    EXPECT_TRUE(std::ranges::is_permutation(shuffled, values));
    std::set<int> picked;
    for (int i = 0; i < 1000; ++i)
        picked.insert(random.Pick(values));
    EXPECT_EQ(picked.size(), values.size());
}

TEST(GeneratorNames, AreDistinctAndFit) {
    Random random(6);
    generator::DetectionNames names;
    std::set<std::string> given;
    for (int i = 0; i < 500; ++i) {
        const std::string name = names.Next("Trojan", i % 2 == 0 ? "VB" : "Sample", random);
        EXPECT_TRUE(given.insert(name).second) << name;
        EXPECT_LE(name.size(), rules::kMaxDetectionName);
        const std::string variant = name.substr(name.rfind('.') + 1);
        ASSERT_EQ(variant.size(), 3u);
        for (const char letter : variant.substr(0, 2))
            EXPECT_TRUE(i % 2 == 0 ? std::islower(letter) : std::isupper(letter)) << name;
        EXPECT_TRUE(variant[2] >= '1' && variant[2] <= '9') << name;
    }
    generator::DetectionNames free;
    generator::DetectionNames taking;
    Random left(7);
    const std::string first = free.Next("Worm", "A", left);
    taking.Take(first);
    Random right(7);
    EXPECT_NE(taking.Next("Worm", "A", right), first);
    for (uint64_t seed = 0; seed < 300; ++seed) {
        const std::string word = generator::FamilyWord(seed);
        EXPECT_TRUE(word.size() >= 4 && word.size() <= 8 && std::isupper(word[0])) << word;
        EXPECT_EQ(word, generator::FamilyWord(seed));
        const std::string small = generator::SmallWord(random);
        EXPECT_TRUE(std::ranges::all_of(small, [](char c) { return c >= 'a' && c <= 'z'; })) << small;
    }
}

TEST(GeneratorExpressions, AreDistinctAndWellFormed) {
    Random random(8);
    const std::set<std::string> taken = {"(A&B)"};
    const generator::ExpressionPool pool = generator::MakeExpressions(120, taken, random);
    std::set<std::string> all;
    for (const auto &[letters, texts] : pool)
        for (const std::string &text : texts) {
            EXPECT_TRUE(all.insert(text).second) << text;
            EXPECT_FALSE(taken.contains(text)) << text;
            std::set<char> used;
            std::ranges::copy_if(text, std::inserter(used, used.end()), [](char c) { return c >= 'A' && c <= 'Z'; });
            EXPECT_EQ(used.size(), letters) << text;
            EXPECT_EQ(*used.rbegin(), static_cast<char>('A' + letters - 1)) << text;
            EXPECT_FALSE(rules::CheckExpression(text, letters)) << text;
            EXPECT_TRUE(letters >= 2 && letters <= 13) << text;
        }
    EXPECT_EQ(all.size(), 120u);
    EXPECT_EQ(pool.begin()->first, 2u);
    EXPECT_EQ(pool.rbegin()->first, 13u);
}

TEST(GeneratorContent, MarksWhatIsThere) {
    constexpr uint32_t kBase = 0x10000000;
    Random random(9);
    Content content;
    content.AddCode(0x4000, kBase, random);
    EXPECT_GE(content.size(), 0x4000u);
    ASSERT_GT(content.marks.size(), 100u);
    std::size_t addresses = 0;
    for (const Mark &mark : content.marks) {
        ASSERT_LE(mark.offset + mark.length, content.size());
        EXPECT_FALSE(mark.is_text);
        EXPECT_FALSE(mark.mask[0] || mark.mask[mark.length]);
        EXPECT_GE(mark.length - mark.mask.count(), 6u);
        for (uint32_t i = 1; i + 4 < mark.length; ++i)
            if (mark.mask[i] && !mark.mask[i - 1] && mark.mask[i + 3] && !mark.mask[i + 4]) {
                uint32_t address = 0;
                std::memcpy(&address, &content.bytes[mark.offset + i], sizeof(address));
                EXPECT_LT(address - kBase - 0x1000, 0x7000u) << "an operand that is masked is an address";
                ++addresses;
            }
    }
    EXPECT_GT(addresses, 100u);

    Content texts;
    texts.AddNumbers(3, random);
    texts.bytes.push_back(1);
    texts.AddText("plain", false);
    texts.AddText("wide", true);
    ASSERT_EQ(texts.marks.size(), 2u);
    EXPECT_EQ(texts.marks[0].offset, 16u);
    EXPECT_EQ(std::memcmp(&texts.bytes[16], "plain\0\0\0w\0i\0d\0e\0\0\0", 18), 0);
    EXPECT_EQ(texts.marks[1].offset, 24u);
    EXPECT_EQ(texts.marks[1].length, 4u);
    EXPECT_TRUE(texts.marks[1].is_text && texts.marks[1].is_wide && !texts.marks[0].is_wide);
    texts.AddText(std::string(200, 'x'), false);
    EXPECT_EQ(texts.marks[2].length, rules::kMaxStringLength);
    for (std::size_t i = 0; i < 12; i += 4) {
        uint32_t number = 0;
        std::memcpy(&number, &texts.bytes[i], sizeof(number));
        EXPECT_LT(number, 0x400u);
    }

    Content packed;
    packed.AddPacked(0x400, random);
    EXPECT_EQ(packed.size(), 0x400u);
    EXPECT_EQ(packed.marks.size(), 4u);
    EXPECT_EQ(generator::ExpandText("a%%b%", "F", random), "a%%b%");
    EXPECT_EQ(generator::ExpandText("%f.%f!", "Fam", random), "Fam.Fam!");
    EXPECT_EQ(generator::ExpandText("%x", "", random).size(), 8u);
    EXPECT_TRUE(generator::ExpandText("%h", "", random).ends_with(".example"));
    EXPECT_NE(generator::ExpandText("%w", "", random), generator::ExpandText("%w", "", random));
    const int number = std::stoi(generator::ExpandText("%n", "", random));
    EXPECT_TRUE(number >= 2 && number <= 9999);
}

} // namespace
} // namespace tavrik::tests
