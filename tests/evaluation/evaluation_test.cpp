// The evaluators with the whole database: on the specimen of every rule, on altered specimens, on packaged programs.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>

#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/evaluator.h"
#include "evaluation/rule_explanation.h"
#include "evaluation/rule_index.h"
#include "rules/record/reader.h"
#include "rules/record/record_builder.h"
#include "scanner/module.h"
#include "scanner/recording_source.h"
#include "tests/support/packaged_files.h"
#include "tests/support/sampling.h"

namespace tavrik::tests {
namespace {

class Evaluators : public testing::Test {
protected:
    Evaluators() { index_.Prepare(); }

    /** What both evaluators answer; they must agree. The fast one must read the same with its table and without. */
    std::vector<uint32_t> Match(std::span<const uint8_t> file, const std::string &name) {
        base::MemorySource source(file);
        scanner::RecordingSource with_table(source);
        scanner::RecordingSource without_table(source);
        evaluation::Features fast_features(with_table);
        evaluation::Features first_features(without_table);
        const std::vector<uint32_t> fast = index_.Match(fast_features);
        EXPECT_EQ(evaluation::RuleIndex(module_.rules()).Match(first_features), fast) << name;
        EXPECT_TRUE(std::ranges::equal(with_table.accesses(), without_table.accesses())) << name;
        evaluation::Features features(source);
        std::vector<uint32_t> plain;
        for (uint32_t place = 0; place < module_.rules().size(); ++place)
            if (evaluation::Matches(*module_.rules()[place], features))
                plain.push_back(place);
        EXPECT_EQ(fast, plain) << name;
        return plain;
    }

    scanner::Module module_;
    evaluation::RuleIndex index_{module_.rules()};
};

TEST_F(Evaluators, FindEverySpecimenByItsRuleAlone) {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    ASSERT_EQ(generator.size(), module_.rules().size());
    std::size_t also_by_others = 0;
    for (uint32_t place = 0; place < generator.size(); place += kSampling) {
        const auto image = generator.SpecimenImage(place);
        ASSERT_TRUE(image) << place;
        const std::vector<uint32_t> found = Match(*image, "specimen " + std::to_string(place));
        EXPECT_NE(std::ranges::find(found, place), found.end())
            << "specimen " << place << " is not detected by its rule " << module_.rules()[place]->rule_id;
        also_by_others += found.size() > 1 ? 1U : 0U;
    }
    RecordProperty("detected_also_by_others", static_cast<int>(also_by_others));
    EXPECT_EQ(also_by_others, 0u) << "rules are to be specific";
}

TEST_F(Evaluators, AgreeOnAlteredSpecimens) {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::mt19937 random(1);
    std::size_t still_found = 0;
    for (uint32_t place = 0; place < generator.size(); place += 4 * kSampling) {
        std::vector<uint8_t> image = *generator.SpecimenImage(place);
        const std::size_t headers = std::min<std::size_t>(image.size(), 0x400);
        image[random() % headers] ^= static_cast<uint8_t>(1u << random() % 8);
        image[random() % image.size()] ^= static_cast<uint8_t>(1u << random() % 8);
        if (place % 8 == 0)
            image.resize(image.size() - random() % 0x400);
        still_found += Match(image, "altered specimen " + std::to_string(place)).empty() ? 0U : 1U;
    }
    // A rule asks for few of a file's bits: both answers must be common, or the test would say little.
    EXPECT_GT(still_found, generator.size() / (40 * kSampling));
    EXPECT_LT(still_found, generator.size() / (4 * kSampling));
}

TEST_F(Evaluators, FindNothingInPackagedPrograms) {
    std::size_t programs = 0;
    const std::vector<std::filesystem::path> paths = PackagedFiles();
    for (std::size_t place = 0; place < paths.size(); place += kSampling) {
        const std::filesystem::path &path = paths[place];
        std::ifstream file(path, std::ios::binary);
        const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
        base::MemorySource source(bytes);
        programs += evaluation::Features(source).IsPe() ? 1U : 0U;
        for (const uint32_t found : Match(bytes, path.string()))
            ADD_FAILURE() << path << " is detected by rule " << module_.rules()[found]->rule_id;
    }
    EXPECT_GE(programs, 500 / kSampling) << "install what ./run test installs";
}

// With nothing but their strings the rules have no condition to be filed under, and the strings of all are looked for.
TEST_F(Evaluators, AgreeOnRulesOfStringsAlone) {
    rules::RuleSet stripped;
    for (const rules::Rule &rule :
         rules::record::ReadRules(module_.rules(), rules::record::RecordForm::Working).rules) {
        rules::Rule &kept = stripped.rules.emplace_back();
        kept.strings = rule.strings;
        kept.expression = rule.expression;
    }
    const rules::record::RecordSet records(stripped);
    const evaluation::RuleIndex index(records.rules());
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::size_t found = 0;
    for (uint32_t place = 0; place < generator.size(); place += 131) {
        const auto image = generator.SpecimenImage(place);
        base::MemorySource source(*image);
        evaluation::Features features(source);
        std::vector<uint32_t> plain;
        for (uint32_t rule = 0; rule < records.rules().size(); ++rule)
            if (evaluation::Matches(*records.rules()[rule], features))
                plain.push_back(rule);
        EXPECT_EQ(index.Match(features), plain) << place;
        found += plain.empty() ? 0U : 1U;
    }
    EXPECT_GT(found, 20u);
}

// An explanation judges every condition on its own; together they must say what the evaluator says.
TEST_F(Evaluators, ExplainTheirAnswers) {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    for (uint32_t place = 0; place < generator.size(); place += 61) {
        const auto image = generator.SpecimenImage(place);
        base::MemorySource source(*image);
        evaluation::Features features(source);
        const evaluation::RuleExplanation own = evaluation::ExplainRule(*module_.rules()[place], features);
        EXPECT_TRUE(own.matches && own.failed == 0) << own.text;
        const evaluation::RuleExplanation other =
            evaluation::ExplainRule(*module_.rules()[place == 0 ? 1 : place - 1], features);
        EXPECT_TRUE(!other.matches && other.failed > 0) << other.text;
        EXPECT_NE(other.text.find("\nFAIL  "), std::string::npos) << other.text;
    }
}

} // namespace
} // namespace tavrik::tests
