// What is said of rules without a file, checked against files: never met, always met, met wherever another rule is.
#include <algorithm>
#include <optional>
#include <random>

#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/evaluator.h"
#include "rules/analysis/rule_logic.h"
#include "rules/lists.h"
#include "rules/numbers.h"
#include "rules/record/record_builder.h"
#include "rules/text/printer.h"
#include "tests/support/sampling.h"

namespace tavrik::tests {
namespace {

using rules::Rule;

/** Makes small rules that have much to do with a given one, so that they often meet its specimen, and each other, and
 * files like the specimen. */
class Variations {
public:
    explicit Variations(uint32_t seed) : random_(seed) {}

    void Begin(const Rule &original, std::vector<uint8_t> specimen) {
        original_ = &original;
        file_ = std::move(specimen);
    }

    const std::vector<uint8_t> &file() const { return file_; }

    /** Makes the file another one, near what the rules ask for. */
    void ChangeFile() {
        for (int i = 0; i < 3; ++i)
            file_[Below(std::min<std::size_t>(file_.size(), 0x400))] ^= static_cast<uint8_t>(1u << Below(8));
        // Letters in the other case.
        for (const rules::StringFeature &e : original_->strings)
            if (const std::optional<std::size_t> place = PlaceOf(e.bytes); place && Below(2) == 0)
                file_[*place + Below(e.bytes.size())] ^= 0x20;
    }

    Rule Make() {
        Rule rule = *original_;
        rule.attribute_b &= static_cast<uint32_t>(1u << Below(8));
        if (Below(2) == 0)
            rule.expression.clear();
        const bool with_strings = Below(2) == 0;
        const std::size_t others = with_strings ? 8 : 3; // one list in so many stays
        const auto change = [&](auto, auto &list) {
            using List = std::decay_t<decltype(list)>;
            using Element = typename List::value_type;
            // Others point into these, or the expression does.
            constexpr bool kStays = std::is_same_v<Element, rules::StringFeature> ||
                                    std::is_same_v<Element, rules::ImportModule> ||
                                    std::is_same_v<Element, rules::ObjectName>;
            if constexpr (std::is_same_v<Element, rules::StringFeature>) {
                if (!with_strings)
                    list.clear();
            } else if (Below(others) != 0) {
                list.clear();
            }
            const std::size_t kept = 1 + Below(3);
            if constexpr (!kStays)
                while (list.size() > kept)
                    list.erase(list.begin() + static_cast<std::ptrdiff_t>(Below(list.size())));
            if (!list.empty() && Below(2) == 0)
                Change(list[Below(list.size())]);
            if (!kStays && !list.empty() && Below(3) == 0)
                Change(list.emplace_back(Element(list[Below(list.size())])));
        };
        rules::EachList(change, rule);
        if (!with_strings)
            rule.expression.clear();
        if (rule.import_modules.empty())
            rule.import_functions.clear();
        for (rules::ImportFunction &function : rule.import_functions) // of a module that is left
            function.index = static_cast<uint16_t>(function.index % rule.import_modules.size());
        if (rule.object_names.empty())
            rule.member_names.clear();
        if (rule.attribute_b == 0 && rules::ComputeFeatureFlags(rule) == 0) // no rule asks nothing
            rule.header_conditions.push_back({rules::header_field::kDosMagic, rules::Operator::Equal, 0x5A4D});
        return rule;
    }

private:
    std::size_t Below(std::size_t end) { return random_() % end; }

    std::optional<std::size_t> PlaceOf(std::string_view bytes) const {
        const auto place = std::search(file_.begin(), file_.end(), bytes.begin(), bytes.end(),
                                       [](uint8_t byte, char c) { return byte == static_cast<uint8_t>(c); });
        return place == file_.end() ? std::nullopt : std::optional(static_cast<std::size_t>(place - file_.begin()));
    }

    template <typename Element>
    void Change(Element &e) {
        if constexpr (requires { e.op; })
            if (Below(2) == 0)
                e.op = static_cast<rules::Operator>(1 + Below(7));
        if constexpr (requires { e.value; })
            if (Below(2) == 0)
                e.value += static_cast<uint32_t>(Below(3)) - 1;
        if constexpr (requires { e.option; })
            if (Below(2) == 0)
                e.option ^= static_cast<uint8_t>(1u << Below(2));
        if constexpr (requires { e.name; })
            if (Below(2) == 0 && !e.name.empty())
                Below(2) == 0 ? e.name.pop_back() : void(e.name[Below(e.name.size())] ^= 0x20);
        if constexpr (requires { e.language; })
            if (Below(2) == 0)
                e.language = 0;
        if constexpr (requires { e.absent; })
            e.absent ^= static_cast<uint32_t>(Below(2));
        if constexpr (requires { e.id; })
            if (Below(2) == 0)
                e.id = rules::kAnyResource;
        if constexpr (requires { e.window_start; })
            ChangeString(e);
    }

    void ChangeString(rules::StringFeature &e) {
        if (Below(2) == 0)
            e.options ^= rules::kStringNoCase;
        if (Below(3) == 0)
            e.mask.flip(Below(e.bytes.size()));
        e.anchor = rules::DefaultAnchor(e);
        // A window whose ends are close to the string.
        const std::optional<std::size_t> place = PlaceOf(e.bytes);
        if (place && Below(2) == 0) {
            e.kind = static_cast<uint8_t>(rules::StringKind::File);
            e.section_name.clear();
            e.section_tail.clear();
            e.window_start = static_cast<uint16_t>(*place + Below(12) - 8);
            e.window_length = static_cast<uint16_t>(Below(8));
            e.drift = static_cast<uint16_t>(Below(4));
        }
    }

    const Rule *original_ = nullptr;
    std::vector<uint8_t> file_;
    std::mt19937 random_;
};

TEST(RuleLogic, ClaimsNothingThatAFileRefutes) {
    constexpr std::size_t kRules = 24; // of one specimen; each is compared with each
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    const rules::RuleSet database = generator.Rules();
    Variations vary(1);
    std::size_t never = 0;
    std::size_t always = 0;
    std::size_t implied_and_met = 0;
    for (std::size_t place = 0; place < generator.size(); place += 11 * kSampling) {
        vary.Begin(database.rules[place], *generator.SpecimenImage(place));
        rules::RuleSet set;
        for (std::size_t i = 0; i < kRules; ++i)
            set.rules.push_back(vary.Make());
        const rules::record::RecordSet records(set);
        const std::vector<rules::analysis::RuleLogic> logics(set.rules.begin(), set.rules.end());
        for (int change = 0; change < 4; ++change) {
            base::MemorySource source(vary.file());
            evaluation::Features features(source);
            std::vector<bool> met;
            for (const HeuristicRule *record : records.rules())
                met.push_back(evaluation::Matches(*record, features));
            for (std::size_t i = 0; i < kRules; ++i) {
                EXPECT_FALSE(logics[i].IsNeverMet() && met[i]) << place << "\n" << rules::text::PrintRule(set.rules[i]);
                EXPECT_FALSE(logics[i].IsAlwaysMet() && !met[i] && features.IsPe())
                    << place << "\n"
                    << rules::text::PrintRule(set.rules[i]);
                never += logics[i].IsNeverMet() ? 1U : 0U;
                always += logics[i].IsAlwaysMet() ? 1U : 0U;
                for (std::size_t j = 0; met[i] && j < kRules; ++j)
                    if (i != j && !logics[j].IsNeverMet() && logics[i].Implies(logics[j])) {
                        EXPECT_TRUE(met[j]) << place << ": this\n"
                                            << rules::text::PrintRule(set.rules[i]) << "implies\n"
                                            << rules::text::PrintRule(set.rules[j]);
                        ++implied_and_met;
                    }
            }
            vary.ChangeFile();
        }
    }
    // Or nothing was put to the test.
    EXPECT_GT(never, 1000u / kSampling);
    EXPECT_GT(always, 0u);
    EXPECT_GT(implied_and_met, 1000u / kSampling);
}

} // namespace
} // namespace tavrik::tests
