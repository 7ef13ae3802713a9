// The exported rules in libyara: they are to give the same answers as those that they were made of.
#include <random>

#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "tests/support/sampling.h"
#include "tests/support/yara_scanner.h"

namespace tavrik::tests {
namespace {

TEST(YaraExport, AnswersAsTheRulesDo) {
    constexpr std::size_t kStep = 41; // a prime, so that all kinds of rules are among them
    constexpr unsigned kCopies = 4;
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    const rules::RuleSet set = Exportable(generator.Rules());
    EXPECT_GT(set.rules.size(), 5000u);
    const YaraLibrary library;
    BothSides sides(set);
    std::mt19937 random(1);
    std::size_t matches = 0;
    std::size_t altered_matches = 0;
    for (std::size_t place = 0; place < generator.size(); place += kStep * kSampling) {
        const std::vector<uint8_t> specimen = *generator.SpecimenImage(place);
        const std::vector<uint32_t> found = sides.MatchOurs(specimen);
        EXPECT_EQ(sides.MatchYara(specimen), found) << "specimen " << place;
        matches += found.size();
        for (const std::vector<uint8_t> &altered : Altered(specimen, kCopies, random)) {
            const std::vector<uint32_t> still_found = sides.MatchOurs(altered);
            EXPECT_EQ(sides.MatchYara(altered), still_found) << "altered specimen " << place;
            altered_matches += still_found.size();
        }
    }
    EXPECT_GT(matches, 90u / kSampling);
    EXPECT_GT(altered_matches, 180u / kSampling);
}

} // namespace
} // namespace tavrik::tests
