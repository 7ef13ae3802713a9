// The generator's own reading of its images against that of the evaluators, which is written apart from it: on
// specimens of every toolchain, value by value.
#include <initializer_list>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/image_facts.h"
#include "database/generator/plan.h"
#include "database/generator/specimen.h"
#include "database/generator/written_rules.h"
#include "database/profile/profile.h"
#include "evaluation/features.h"
#include "evaluation/measures.h"
#include "evaluation/rule_index.h"
#include "rules/names.h"
#include "rules/record/record_builder.h"
#include "rules/regions.h"

namespace tavrik::tests {
namespace {

using generator::ImageFacts;
using generator::Stretch;

class Comparison {
public:
    explicit Comparison(std::span<const uint8_t> image) : source_(image), features_(source_), facts_(image) {}

    void CheckAll() {
        for (const rules::Field &field : rules::HeaderFields())
            EXPECT_EQ(facts_.Header(field.number), features_.Header(field.number)) << field.name;
        CheckSections();
        for (uint8_t kind = 1; kind <= rules::kMaxStringKind; ++kind)
            for (const uint8_t index : std::initializer_list<uint8_t>{0, 1})
                CheckString(kind, index);
        for (uint8_t code = rules::CodeOf(rules::MeasureRegion::IndexedSection);
             code <= rules::CodeOf(rules::MeasureRegion::VisualBasic); ++code)
            for (const uint8_t index : std::initializer_list<uint8_t>{0, 1})
                CheckMeasure(code, index);
        CheckTables();
        CheckObjects();
    }

private:
    void CheckSections() {
        ASSERT_EQ(facts_.Sections().size(), features_.sections().size());
        for (uint16_t selector = 0; selector <= rules::kLastSectionRole; ++selector)
            if (selector <= rules::kMaxSectionIndex || selector >= rules::kFirstSectionRole) {
                EXPECT_EQ(facts_.SectionOf(selector), features_.SectionOf(selector)) << selector;
            }
        for (uint32_t i = 0; i < facts_.Sections().size(); ++i) {
            const SectionHeader &section = features_.sections()[i];
            EXPECT_EQ(facts_.SectionName(i), evaluation::SectionName(section));
            EXPECT_EQ(facts_.SectionValue(i, 3), section.SizeOfRawData);
            EXPECT_EQ(facts_.SectionValue(i, 9), section.Characteristics);
        }
    }

    static base::Region RegionOf(Stretch stretch) {
        return stretch.size == 0 ? base::Region{} : base::Region{stretch.offset, stretch.size};
    }
    static base::Region RegionOf(base::Region region) { return region.IsAbsent() ? base::Region{} : region; }

    void CheckString(uint8_t kind, uint8_t index) {
        std::string name = facts_.SectionName(0);
        StringFeature string = {};
        string.string_kind = kind;
        string.param_d = index;
        string.string_section = name.data();
        string.string_section_length = static_cast<uint8_t>(name.size());
        EXPECT_EQ(RegionOf(facts_.StringRegion(kind, index, name)), RegionOf(features_.StringRegion(string)))
            << int{kind};
    }

    void CheckMeasure(uint8_t code, uint8_t index) {
        const Stretch stretch = facts_.MeasureRegion(code, index);
        EXPECT_EQ(RegionOf(stretch), RegionOf(features_.MeasuredRegion(code, index))) << int{code};
        if (stretch.size == 0)
            return;
        const uint32_t entropy = generator::EntropyInThousandths(facts_.Bytes(stretch));
        EXPECT_NEAR(entropy, *features_.Entropy(code, index, 0), 1) << int{code};
    }

    void CheckTables() {
        const auto descriptors = features_.Imports().descriptors();
        ASSERT_EQ(facts_.Imports().size(), descriptors.size());
        for (std::size_t i = 0; i < descriptors.size(); ++i) {
            const generator::ImportFacts &import = facts_.Imports()[i];
            EXPECT_EQ(import.module, descriptors[i].module);
            EXPECT_EQ(pe::ImportTable::Functions(import.functions.begin(), import.functions.end()),
                      features_.Imports().FunctionsOf(i));
            for (uint32_t field = 0; field < descriptors[i].fields.size(); ++field)
                EXPECT_EQ(facts_.Read(import.descriptor + 4 * field, 4), descriptors[i].fields[field]);
        }
        const auto &resources = features_.Resources().resources;
        ASSERT_EQ(facts_.Resources().size(), resources.size());
        for (std::size_t i = 0; i < resources.size(); ++i) {
            const generator::ResourceFacts &resource = facts_.Resources()[i];
            EXPECT_EQ(resource.type.number, resources[i].type.number);
            EXPECT_EQ(resource.entry.number, resources[i].entry.number);
            EXPECT_EQ(std::u16string(resource.type.name.begin(), resource.type.name.end()), resources[i].type.name);
            EXPECT_EQ(std::u16string(resource.entry.name.begin(), resource.entry.name.end()), resources[i].entry.name);
            EXPECT_EQ(resource.language, resources[i].language);
            EXPECT_EQ(RegionOf(resource.data), RegionOf(resources[i].data));
        }
    }

    void CheckObjects() {
        ASSERT_EQ(facts_.ObjectCount(), features_.Vb().ObjectCount());
        for (uint32_t object = 0; object <= facts_.ObjectCount(); ++object)
            for (const rules::Field &field : rules::ObjectFields())
                EXPECT_EQ(facts_.ObjectField(object, field.number), features_.Vb().ObjectValue(object, field))
                    << object << ' ' << field.name;
    }

    base::MemorySource source_;
    evaluation::Features features_;
    ImageFacts facts_;
};

TEST(ImageFacts, AgreeWithTheEvaluatorsReading) {
    const rules::RuleSet written = generator::WrittenRules();
    const std::vector<generator::Slot> slots = generator::PlanTable(written);
    std::map<generator::Toolchain, int> seen;
    for (std::size_t place = 0; place < slots.size(); ++place) {
        const generator::RulePlan &plan = slots[place].plan;
        if (slots[place].written != nullptr || (seen[plan.archetype->toolchain]++ % 24 != 0 && !plan.far_string))
            continue;
        SCOPED_TRACE(place);
        const generator::Specimen specimen = generator::MakeSpecimen(plan);
        Comparison(specimen.image).CheckAll();
        if (HasFatalFailure())
            return;
    }
    EXPECT_EQ(seen.size(), 10u) << "every toolchain";
}

TEST(ImageFacts, ShowWhatTheirPlanAsksFor) {
    const rules::RuleSet written = generator::WrittenRules();
    std::size_t checked = 0;
    for (const generator::Slot &slot : generator::PlanTable(written)) {
        const generator::RulePlan &plan = slot.plan;
        if (slot.written != nullptr || ++checked % 16 != 0)
            continue;
        SCOPED_TRACE(plan.rule_id);
        const generator::Specimen specimen = generator::MakeSpecimen(plan);
        const ImageFacts facts(specimen.image);
        for (const uint8_t kind : plan.string_kinds) // but for those of a section by its position or name
            if (const auto region = rules::RegionOfString(kind).kind;
                region != rules::RegionKind::IndexedSection && region != rules::RegionKind::NamedSection) {
                EXPECT_GT(facts.StringRegion(kind, 0, "").size, 0u) << int{kind};
            }
        for (const uint8_t code : plan.measure_regions)
            if (rules::RegionOfMeasure(code).kind != rules::RegionKind::IndexedSection) {
                EXPECT_GT(facts.MeasureRegion(code, 0).size, 0u) << int{code};
            }
        EXPECT_GE(facts.Imports().size(), plan.counts[generator::kImportModules]);
        if (plan.many_sections) {
            EXPECT_EQ(facts.Sections().size(), 34u);
        }
        if (plan.IsLibrary()) {
            EXPECT_NE(*facts.Header(37) & 0x2000, 0u) << "a library's Characteristics";
        }
        EXPECT_EQ(facts.ObjectCount() > 0, plan.IsVisualBasic());
        for (const generator::Mark &mark : specimen.marks)
            EXPECT_LE(mark.offset + mark.length * (mark.is_wide ? 2 : 1), specimen.image.size());
    }
}

TEST(Generator, MeetsTheProfileWithRulesThatFindTheirSpecimensAlone) {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    const rules::RuleSet database = generator.Rules();
    for (const profile::FactResult &fact : profile::CheckProfile(database))
        EXPECT_EQ(fact.actual, fact.expected) << fact.name;
    ASSERT_EQ(database.rules.size(), generator.size());
    const rules::record::RecordSet records(database);
    const evaluation::RuleIndex index(records.rules());
    for (uint32_t place = 0; place < generator.size(); place += 37) {
        const std::vector<uint8_t> image = *generator.SpecimenImage(place);
        base::MemorySource source(image);
        evaluation::Features features(source);
        EXPECT_EQ(index.Match(features), std::vector<uint32_t>{place});
    }
}

TEST(Entropy, OfTheGeneratorIsExactToOneUnit) {
    std::mt19937 random(4);
    for (const uint32_t values : {1u, 2u, 3u, 7u, 100u, 256u})
        for (const std::size_t size : {1u, 2u, 3u, 255u, 4096u, 70001u}) {
            std::vector<uint8_t> bytes(size);
            for (uint8_t &byte : bytes)
                byte = static_cast<uint8_t>(random() % values);
            base::MemorySource source(bytes);
            base::FileBytes reader(source);
            EXPECT_NEAR(generator::EntropyInThousandths(bytes), *evaluation::MeasureEntropy(reader, {0, size}), 1)
                << values << ' ' << size;
        }
    EXPECT_EQ(generator::EntropyInThousandths({}), 0u);
}

} // namespace
} // namespace tavrik::tests
