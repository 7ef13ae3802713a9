#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "database/generator/expressions.h"
#include "database/generator/planner.h"
#include "database/profile/profile.h"
#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::generator {
namespace {

using rules::CodeOf;
using rules::FromEndCodeOf;
using rules::MeasureCodeOf;
using rules::MeasureRegion;
using rules::Rule;
using rules::SectionRole;
using rules::StringKind;

// Kinds of strings other than section[n] by their number in the whole database.
struct KindCount {
    uint8_t kind;
    std::size_t elements;
};
constexpr std::size_t kFromEndNamed = 60; // of named sections
constexpr KindCount kCommonKinds[] = {
    {FromEndCodeOf(StringKind::IndexedSection), 330},
    {CodeOf(StringKind::File), 420},
    {FromEndCodeOf(StringKind::File), 50},
    {CodeOf(StringKind::Headers), 40},
    {FromEndCodeOf(StringKind::Headers), 20},
    {CodeOf(StringKind::Overlay), 240},
    {FromEndCodeOf(StringKind::Overlay), 60},
    {CodeOf(StringKind::EntryCode), 640},
    {FromEndCodeOf(StringKind::EntryCode), 30},
    {CodeOf(StringKind::EntrySection), 190},
    {FromEndCodeOf(StringKind::EntrySection), 30},
    {CodeOf(StringKind::LastSection), 230},
    {FromEndCodeOf(StringKind::LastSection), 40},
    {CodeOf(StringKind::CodeSection), 150},
    {FromEndCodeOf(StringKind::CodeSection), 20},
    {CodeOf(StringKind::ResourceSection), 120},
    {FromEndCodeOf(StringKind::ResourceSection), 20},
    {CodeOf(StringKind::ImportSection), 40},
    {FromEndCodeOf(StringKind::ImportSection), 15},
    {CodeOf(StringKind::ResourceData), 90},
    {FromEndCodeOf(StringKind::ResourceData), 20},
    {CodeOf(StringKind::LargestSection), 60},
    {FromEndCodeOf(StringKind::LargestSection), 15},
    {CodeOf(StringKind::DosStub), 45},
    {FromEndCodeOf(StringKind::DosStub), 10},
};
constexpr KindCount kLibraryKinds[] = {{CodeOf(StringKind::ExportSection), 24},
                                       {FromEndCodeOf(StringKind::ExportSection), 10}};
constexpr KindCount kBasicKinds[] = {{CodeOf(StringKind::VisualBasic), 150},
                                     {FromEndCodeOf(StringKind::VisualBasic), 20}};

// Measured regions other than section[n], as often as they are drawn.
constexpr uint8_t kCommonRegions[] = {
    MeasureCodeOf(SectionRole::Last),       MeasureCodeOf(SectionRole::Entry),   MeasureCodeOf(SectionRole::Entry),
    MeasureCodeOf(SectionRole::Entry),      MeasureCodeOf(SectionRole::Code),    MeasureCodeOf(SectionRole::Resource),
    MeasureCodeOf(SectionRole::Tls),        MeasureCodeOf(SectionRole::Largest), MeasureCodeOf(SectionRole::Largest),
    MeasureCodeOf(SectionRole::NextToLast), CodeOf(MeasureRegion::File),         CodeOf(MeasureRegion::Headers),
    CodeOf(MeasureRegion::Overlay),         CodeOf(MeasureRegion::EntryCode),    CodeOf(MeasureRegion::EntryCode),
    CodeOf(MeasureRegion::EntryCode),       CodeOf(MeasureRegion::ResourceData), CodeOf(MeasureRegion::DosStub),
};
constexpr uint8_t kLibraryRegions[] = {MeasureCodeOf(SectionRole::Data), MeasureCodeOf(SectionRole::Import),
                                       MeasureCodeOf(SectionRole::Export), MeasureCodeOf(SectionRole::Relocation)};
constexpr uint8_t kBasicRegions[] = {CodeOf(MeasureRegion::VisualBasic)};

std::size_t LetterCount(const std::string &expression) {
    std::set<char> letters(expression.begin(), expression.end());
    std::erase_if(letters, [](char c) { return c < 'A' || c > 'Z'; });
    return letters.size();
}

} // namespace

void Planner::ChooseTraits() {
    constexpr uint32_t kFunctionsOfFew = 4;
    for (RulePlan *plan : plans_) {
        const uint32_t traits = random_.Pick(plan->archetype->traits);
        const bool imports_many = plan->counts[kImportFunctions] > kFunctionsOfFew ||
                                  plan->counts[kImportModules] > 2 || plan->counts[kImportTable] > 0 ||
                                  plan->many_modules;
        if ((traits & rules::trait::kFewImports) != 0 && imports_many)
            continue;
        plan->traits = traits;
    }
}

void Planner::ChooseExpressions() {
    std::set<std::string> taken;
    for (const Rule &rule : written_.rules)
        if (!rule.expression.empty())
            taken.insert(rule.expression);
    const std::size_t rules =
        room_.Rules(profile::kExpressions, [](const Rule &rule) { return !rule.expression.empty(); });
    const std::size_t partial = room_.Rules(profile::kExpressions - profile::kExpressionsOverAll, [](const Rule &rule) {
        return !rule.expression.empty() && LetterCount(rule.expression) < rule.strings.size();
    });
    const ExpressionPool pool = MakeExpressions(profile::kDistinctExpressions - taken.size(), taken, random_);

    std::map<std::size_t, Plans> by_strings;
    for (RulePlan *plan : Shuffled([](const RulePlan &plan) { return plan.counts[kStrings] >= 2; }))
        by_strings[plan->counts[kStrings]].push_back(plan);
    std::size_t given = 0;
    const auto give = [&](std::size_t strings, const std::string &text) {
        if (by_strings[strings].empty())
            throw std::logic_error("no rule with " + std::to_string(strings) + " strings is left for an expression");
        by_strings[strings].back()->expression = text;
        by_strings[strings].pop_back();
        ++given;
    };
    for (const auto &[letters, texts] : pool)
        for (const std::string &text : texts)
            give(letters, text);
    ExpressionPool choice = pool; // what the hand-written rules use is good for others too
    for (const std::string &text : taken)
        choice[LetterCount(text)].push_back(text);
    for (std::size_t i = 0; i < partial; ++i)
        give(4 + i, random_.Pick(choice.at(3 + i)));
    while (given < rules) {
        const std::size_t letters = random_.Between(2, random_.Between(2, 5));
        if (!by_strings[letters].empty())
            give(letters, random_.Pick(choice.at(letters)));
    }
}

void Planner::ChooseStringKinds() {
    constexpr uint8_t kSection = CodeOf(StringKind::IndexedSection);
    constexpr uint8_t kNamed = CodeOf(StringKind::NamedSection);
    struct Place {
        RulePlan *plan;
        uint32_t index;
    };
    std::vector<Place> places;
    for (RulePlan *plan : plans_) {
        plan->string_kinds.assign(plan->counts[kStrings], kSection);
        for (uint32_t i = 0; i < plan->counts[kStrings]; ++i)
            if (!plan->many_sections) // these show the numbers that section[n] can have
                places.push_back({plan, i});
    }
    random_.Shuffle(places);
    const auto give = [&](uint8_t kind, std::size_t elements, auto matches) {
        for (auto place = places.begin(); elements > 0; ++place) {
            if (place == places.end())
                throw std::logic_error("no string is left for kind " + std::to_string(kind));
            uint8_t &chosen = place->plan->string_kinds[place->index];
            if (chosen != kSection || !matches(*place->plan))
                continue;
            chosen = kind;
            --elements;
        }
    };
    for (const KindCount &basic : kBasicKinds)
        give(basic.kind, basic.elements, [](const RulePlan &plan) { return plan.IsVisualBasic(); });
    for (const KindCount &library : kLibraryKinds)
        give(library.kind, library.elements, [](const RulePlan &plan) { return plan.IsLibrary(); });
    const std::size_t named = room_.Elements(profile::kNamedSectionStrings, &Rule::strings,
                                             [](const auto &string) { return !string.section_name.empty(); });
    const std::size_t tails = room_.Elements(profile::kSectionTails, &Rule::strings,
                                             [](const auto &string) { return !string.section_tail.empty(); });
    give(kNamed, named - kFromEndNamed, [](const RulePlan &) { return true; });
    give(FromEndCodeOf(StringKind::NamedSection), kFromEndNamed, [](const RulePlan &) { return true; });
    for (const KindCount &common : kCommonKinds)
        give(common.kind, common.elements, [](const RulePlan &) { return true; });

    const auto has_kind = [](uint8_t kind) {
        return [kind](const RulePlan &plan) {
            return std::ranges::find(plan.string_kinds, kind) != plan.string_kinds.end();
        };
    };
    Plans tailed = Shuffled(has_kind(kNamed));
    for (std::size_t i = 0; i < tails; ++i)
        tailed.at(i)->section_tails = 1;
    constexpr uint8_t kResourceData = CodeOf(StringKind::ResourceData);
    const std::size_t numbered = room_.Elements(
        1, &Rule::strings, [](const auto &string) { return string.kind == kResourceData && string.index != 0; });
    if (numbered != 0)
        Shuffled(has_kind(kResourceData)).front()->number_resource = true;
    Shuffled([&](const RulePlan &plan) {
        return has_kind(kSection)(plan) && plan.archetype->toolchain == Toolchain::Msvc6 && plan.traits == 0;
    })
        .front()
        ->far_string = true;
}

void Planner::ChooseMeasures() {
    constexpr uint8_t kSection = CodeOf(MeasureRegion::IndexedSection);
    struct Place {
        RulePlan *plan;
        uint32_t index;
    };
    std::vector<Place> places;
    for (RulePlan *plan : plans_) {
        plan->measure_regions.assign(plan->counts[kMeasures], kSection);
        for (uint32_t i = 0; i < plan->counts[kMeasures]; ++i)
            places.push_back({plan, i});
    }
    random_.Shuffle(places);
    const std::size_t sections = room_.Elements(profile::kIndexedSectionMeasures, &Rule::measure_conditions,
                                                [](const auto &measure) { return measure.region == kSection; });
    const std::size_t others = places.size() - sections;
    for (std::size_t i = 0; i < others; ++i) {
        RulePlan &plan = *places[i].plan;
        uint8_t region = random_.Pick(kCommonRegions);
        if (plan.IsVisualBasic() && random_.Chance(40))
            region = random_.Pick(kBasicRegions);
        if (plan.IsLibrary() && plan.archetype->toolchain != Toolchain::Packer && random_.Chance(60))
            region = random_.Pick(kLibraryRegions);
        plan.measure_regions[places[i].index] = region;
    }
    for (RulePlan *plan : plans_)
        std::ranges::sort(plan->measure_regions);
}

// Rules about files with unnamed sections: together they name exactly the profile's number of empty names.
void Planner::ChooseSectionNames() {
    std::size_t left = room_.Elements(profile::kEmptySectionNames, &Rule::section_names,
                                      [](const auto &name) { return name.name.empty(); });
    const Plans candidates = Shuffled([](const RulePlan &plan) {
        return plan.counts[kSectionNames] > 0 && !plan.many_sections &&
               (plan.archetype->toolchain == Toolchain::Packer || plan.archetype->toolchain == Toolchain::Protector) &&
               std::ranges::none_of(plan.string_kinds, [](uint8_t kind) {
                   return rules::ForwardKind(kind) == CodeOf(StringKind::NamedSection);
               });
    });
    for (RulePlan *plan : candidates) {
        if (plan->counts[kSectionNames] > left)
            continue;
        plan->blank_names = true;
        left -= plan->counts[kSectionNames];
    }
    if (left != 0)
        throw std::logic_error("no rules for the empty section names are left");
}

} // namespace tavrik::generator
