// Headers, sections and Visual Basic objects: conditions on numbers.
#include <algorithm>
#include <set>

#include "database/generator/extract.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using rules::HeaderCondition;
using rules::Operator;
using rules::SecondaryCondition;
using rules::SectionCondition;
using rules::SectionNameCondition;

// How likely rules are to test a range of header fields.
struct Weight {
    uint32_t first;
    uint32_t last;
    uint32_t weight;
};

namespace field = rules::header_field;

// The three fields whose tests are counted have no weight: the plan decides on them.
constexpr Weight kHeaderWeights[] = {
    {0, 29, 2},    {30, 30, 8},   {31, 31, 26},  {32, 32, 30},   {33, 33, 10},  {34, 35, 4},    {36, 36, 12},
    {38, 38, 14},  {39, 40, 24},  {41, 41, 20},  {42, 42, 18},   {43, 43, 8},   {44, 44, 30},   {45, 46, 10},
    {47, 47, 16},  {48, 48, 6},   {49, 49, 8},   {50, 55, 7},    {56, 56, 2},   {57, 57, 20},   {58, 58, 6},
    {59, 59, 5},   {60, 60, 16},  {61, 61, 8},   {62, 65, 5},    {66, 67, 3},   {68, 73, 14},   {74, 99, 4},
    {100, 107, 4}, {108, 115, 4}, {116, 118, 3}, {119, 119, 30}, {120, 121, 8}, {122, 122, 24}, {123, 128, 8},
    {130, 139, 8}, {141, 150, 4}, {151, 195, 3}, {196, 263, 3},
};

// Fields that hardly any two files share, so that even a short rule matches its own file only; the more distinctive,
// the more often listed. Visual Basic programs have few entry points and differ by the identifiers of their projects.
constexpr uint16_t kDistinctiveFields[] = {44, 44, 44, 107, 107, 33, 109};
constexpr uint16_t kDistinctiveBasicFields[] = {33, 109, 157, 158, 159, 160, 145, 165};
constexpr uint32_t kConstantTimeDateStamp = 0x2A425E19; // of a linker that knows no other

// Fields that differ from build to build.
constexpr uint16_t kOwnFields[] = {41, 42, 57, 59, 71, 73, 100};

// Fields that rules also test by a range, with the step that its bounds are multiples of.
struct Ranged {
    uint32_t field;
    uint32_t step;
};
constexpr Ranged kRangedHeaders[] = {{33, 0x10000}, {41, 0x400}, {42, 0x400},  {44, 0x400},  {57, 0x1000}, {71, 0x10},
                                     {73, 0x100},   {93, 0x10},  {100, 0x400}, {102, 0x100}, {103, 0x200}, {112, 4},
                                     {113, 8},      {115, 4},    {132, 0x10},  {145, 0x100}};
constexpr Ranged kRangedSections[] = {{1, 0x400}, {2, 0x1000}, {3, 0x400}, {4, 0x400}};
constexpr Ranged kRangedObjects[] = {{7, 4}, {21, 4}, {24, 8}, {25, 8}, {37, 4}, {9, 0x10}};

uint32_t StepOf(std::span<const Ranged> table, uint32_t field) {
    const auto found = std::ranges::find(table, field, &Ranged::field);
    return found != table.end() ? found->step : 0;
}

// A range around `value` whose bounds are multiples of `step`, the higher one less 1.
struct Range {
    uint32_t low;
    uint32_t high;
};
Range Around(uint32_t value, uint32_t step, Random &random) {
    const uint32_t low = value / step * step;
    return {low, low + step * random.Between(1, 4) - 1};
}

template <typename Value>
Value TakeAt(std::vector<Value> &values, std::size_t index) {
    Value value = values[index];
    values[index] = values.back();
    values.pop_back();
    return value;
}

// ---- Headers -------------------------------------------------------------------------------------------------------

class Headers {
public:
    Headers(const Source &source, rules::Rule &rule)
        : source_(source), random_(source.random), list_(rule.header_conditions), left_(source.plan.counts[kHeader]) {}

    void Extract() {
        if (left_ == 0)
            return;
        const RulePlan &plan = source_.plan;
        if (plan.tests_characteristics)
            Add(field::kCharacteristics);
        if (plan.vb_thread_count != CountedTest::None)
            Add(field::kVbThreadCount);
        if (plan.vb_version != CountedTest::None)
            Add(field::kVbProjectVersion);
        AddOwn();
        AddWeighted();
        std::ranges::stable_sort(list_, {}, &HeaderCondition::field);
    }

private:
    void AddOwn() {
        if (source_.plan.IsVisualBasic())
            AddOneOf(kDistinctiveBasicFields);
        else
            AddOneOf(kDistinctiveFields);
        AddOneOf(kOwnFields);
    }

    void AddOneOf(std::span<const uint16_t> choice) {
        std::vector<uint16_t> fields;
        for (const uint16_t field : choice) {
            const uint32_t value = source_.facts.Header(field).value_or(0);
            if (value != 0 && value != kConstantTimeDateStamp)
                fields.push_back(field);
        }
        if (left_ > 0)
            AddExact(random_.Pick(fields));
    }

    void AddWeighted() {
        std::vector<std::pair<uint16_t, uint32_t>> pool;
        uint32_t sum = 0;
        for (const Weight &weight : kHeaderWeights)
            for (uint32_t field = weight.first; field <= weight.last; ++field)
                if (!used_.contains(field) && source_.facts.Header(field)) {
                    pool.emplace_back(static_cast<uint16_t>(field), weight.weight);
                    sum += weight.weight;
                }
        while (left_ > 0) {
            if (pool.empty())
                FailShort(source_.plan, "header conditions");
            uint32_t point = random_.Below(sum);
            std::size_t index = 0;
            while (point >= pool[index].second)
                point -= pool[index++].second;
            sum -= pool[index].second;
            Add(pool[index].first);
            pool.erase(pool.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }

    void Put(uint16_t field, Operator op, uint32_t value) {
        list_.push_back({field, op, value});
        used_.insert(field);
        --left_;
    }

    void AddExact(uint16_t field) { Put(field, Operator::Equal, *source_.facts.Header(field)); }

    void Add(uint16_t field) {
        constexpr uint32_t kRangePercent = 18;
        constexpr uint32_t kOneSidedOf = 900; // one test in so many
        constexpr uint32_t kFlagPercent = 60;
        const uint32_t value = *source_.facts.Header(field);
        const uint32_t step = StepOf(kRangedHeaders, field);
        if ((field == field::kCharacteristics || (field == field::kDllCharacteristics && value != 0)) &&
            random_.Chance(kFlagPercent))
            return Put(field, Operator::HasBits, value);
        if (step == 0 || value >= UINT32_MAX - 8 * step)
            return AddExact(field);
        if (random_.Below(kOneSidedOf / 3) == 0) {
            const Range range = Around(value, step, random_);
            switch (random_.Below(3U)) {
            case 0:
                return Put(field, Operator::NotEqual, value + step);
            case 1:
                return Put(field, Operator::Less, range.high + 1);
            default:
                if (range.low > 0)
                    return Put(field, Operator::Greater, range.low - 1);
            }
        }
        if (left_ < 2 || !random_.Chance(kRangePercent))
            return AddExact(field);
        const Range range = Around(value, step, random_);
        Put(field, Operator::AtLeast, range.low);
        Put(field, Operator::AtMost, range.high);
    }

    const Source &source_;
    Random &random_;
    std::vector<HeaderCondition> &list_;
    uint32_t left_;
    std::set<uint32_t> used_;
};

// ---- Sections ------------------------------------------------------------------------------------------------------

constexpr uint8_t kSectionFields[] = {1, 2, 3, 4, 9};
constexpr uint8_t kRareSectionFields[] = {5, 6, 7, 8};

std::vector<uint16_t> Selectors(const ImageFacts &facts) {
    std::vector<uint16_t> selectors;
    for (std::size_t i = 0; i < std::min<std::size_t>(facts.Sections().size(), rules::kMaxSectionIndex + 1U); ++i)
        selectors.push_back(static_cast<uint16_t>(i));
    for (uint16_t role = rules::kFirstSectionRole; role <= rules::kLastSectionRole; ++role)
        if (facts.SectionOf(role))
            selectors.push_back(role);
    return selectors;
}

void AddSectionConditions(const Source &source, std::vector<SectionCondition> &list) {
    constexpr uint32_t kRolePercent = 22; // of the chosen conditions, about
    constexpr uint32_t kRarePercent = 1;
    constexpr uint32_t kRangePercent = 14;
    constexpr uint32_t kFlagPercent = 45;
    struct Place {
        uint16_t selector;
        uint8_t field;
    };
    Random &random = source.random;
    std::vector<Place> places;
    std::vector<Place> role_places;
    for (const uint16_t selector : Selectors(source.facts)) {
        auto &pool = selector >= rules::kFirstSectionRole ? role_places : places;
        for (const uint8_t field : kSectionFields)
            pool.push_back({selector, field});
        if (random.Chance(kRarePercent))
            pool.push_back({selector, random.Pick(kRareSectionFields)});
    }
    uint32_t left = source.plan.counts[kSections];
    while (left > 0) {
        if (places.empty() && role_places.empty())
            FailShort(source.plan, "section conditions");
        auto &pool = places.empty() || (!role_places.empty() && random.Chance(kRolePercent)) ? role_places : places;
        const Place place = TakeAt(pool, random.Below(pool.size()));
        const uint32_t value = source.facts.SectionValue(*source.facts.SectionOf(place.selector), place.field);
        const uint32_t step = StepOf(kRangedSections, place.field);
        if (place.field == rules::section_field::kCharacteristics && random.Chance(kFlagPercent)) {
            list.push_back({place.selector, place.field, Operator::HasBits, value});
        } else if (step != 0 && left >= 2 && random.Chance(kRangePercent)) {
            const Range range = Around(value, step, random);
            list.push_back({place.selector, place.field, Operator::AtLeast, range.low});
            list.push_back({place.selector, place.field, Operator::AtMost, range.high});
            --left;
        } else {
            list.push_back({place.selector, place.field, Operator::Equal, value});
        }
        --left;
    }
    std::ranges::stable_sort(list, [](const SectionCondition &a, const SectionCondition &b) {
        return a.section != b.section ? a.section < b.section : a.field < b.field;
    });
}

void AddSectionNames(const Source &source, std::vector<SectionNameCondition> &list) {
    constexpr uint32_t kRolePercent = 18;
    Random &random = source.random;
    std::vector<SectionNameCondition> names;
    std::vector<SectionNameCondition> role_names;
    for (const uint16_t selector : Selectors(source.facts)) {
        const uint32_t section = *source.facts.SectionOf(selector);
        const std::string name = source.facts.SectionName(section);
        if (selector >= rules::kFirstSectionRole) {
            role_names.push_back({selector, Operator::Equal, name});
            continue;
        }
        names.push_back({selector, Operator::Equal, name});
        const bool is_code = (source.facts.Sections()[section].Characteristics & pe::section_flag::kExecute) != 0;
        for (const auto role :
             {rules::SectionRole::Any, is_code ? rules::SectionRole::AnyCode : rules::SectionRole::AnyData}) {
            const SectionNameCondition any = {static_cast<uint16_t>(role), Operator::Equal, name};
            if (std::ranges::find(role_names, any) == role_names.end())
                role_names.push_back(any);
        }
    }
    for (uint32_t left = source.plan.counts[kSectionNames]; left > 0; --left) {
        if (names.empty() && role_names.empty())
            FailShort(source.plan, "section names");
        auto &pool = names.empty() || (!role_names.empty() && random.Chance(kRolePercent)) ? role_names : names;
        list.push_back(TakeAt(pool, random.Below(pool.size())));
    }
    std::ranges::stable_sort(list, {}, &SectionNameCondition::section);
}

// ---- Visual Basic objects ------------------------------------------------------------------------------------------

void AddObjectFields(const Source &source, std::vector<SecondaryCondition> &list) {
    constexpr uint32_t kRangePercent = 25;
    struct Place {
        uint8_t object;
        uint8_t field;
    };
    Random &random = source.random;
    uint32_t left = source.plan.counts[kObjectFields];
    std::vector<Place> places;
    for (uint32_t object = 0; left > 0 && object < source.facts.ObjectCount(); ++object)
        for (uint32_t field = 0; field < rules::ObjectFields().size(); ++field)
            if (source.facts.ObjectField(object, field))
                places.push_back({static_cast<uint8_t>(object), static_cast<uint8_t>(field)});
    while (left > 0) {
        if (places.empty())
            FailShort(source.plan, "object fields");
        const Place place = TakeAt(places, random.Below(places.size()));
        const uint32_t value = *source.facts.ObjectField(place.object, place.field);
        const uint32_t step = StepOf(kRangedObjects, place.field);
        if (step != 0 && left >= 2 && random.Chance(kRangePercent)) {
            const Range range = Around(value, step, random);
            list.push_back({place.object, place.field, Operator::AtLeast, range.low});
            list.push_back({place.object, place.field, Operator::AtMost, range.high});
            --left;
        } else {
            list.push_back({place.object, place.field, Operator::Equal, value});
        }
        --left;
    }
    std::ranges::stable_sort(list, [](const SecondaryCondition &a, const SecondaryCondition &b) {
        return a.index != b.index ? a.index < b.index : a.field < b.field;
    });
}

} // namespace

void ExtractHeaders(const Source &source, rules::Rule &rule) {
    Headers(source, rule).Extract();
}

void ExtractSections(const Source &source, rules::Rule &rule) {
    AddSectionConditions(source, rule.section_conditions);
    AddSectionNames(source, rule.section_names);
}

// The first object carries the methods that rules name.
void ExtractObjects(const Source &source, rules::Rule &rule) {
    constexpr uint16_t kNameable = 25; // positions that object_names reach
    constexpr uint32_t kLastPercent = 40;
    constexpr uint32_t kCasedPercent = 30;
    Random &random = source.random;
    AddObjectFields(source, rule.secondary_conditions);

    const auto &objects = source.specimen.objects;
    std::vector<uint16_t> places;
    for (std::size_t i = 0; i < std::min<std::size_t>(objects.size(), kNameable); ++i)
        places.push_back(static_cast<uint16_t>(i));
    if (places.size() < source.plan.counts[kObjectNames])
        FailShort(source.plan, "object names");
    random.Shuffle(places);
    const uint32_t wanted = source.plan.counts[kObjectNames];
    if (source.plan.many_objects && wanted != 0 && random.Chance(kLastPercent))
        std::swap(places[wanted - 1], *std::ranges::find(places, kNameable - 1));
    if (source.plan.counts[kMemberNames] != 0)
        std::swap(places.front(), *std::ranges::find(places, 0));
    places.resize(wanted);
    std::ranges::sort(places);
    for (const uint16_t place : places)
        rule.object_names.push_back({place, random.Chance(kCasedPercent) ? rules::kNameCased : uint8_t{0},
                                     Operator::Equal, objects[place].name});

    std::vector<rules::MemberName> members;
    for (std::size_t i = 0; i < places.size(); ++i)
        for (const std::string &method : objects[places[i]].methods)
            members.push_back({static_cast<uint16_t>(i),
                               random.Chance(kCasedPercent)
                                   ? static_cast<uint8_t>(rules::kNameCased | rules::kNamePrefix)
                                   : uint8_t{0},
                               Operator::Equal, method});
    if (members.size() < source.plan.counts[kMemberNames])
        FailShort(source.plan, "member names");
    random.Shuffle(members);
    members.resize(source.plan.counts[kMemberNames]);
    std::ranges::stable_sort(members, {}, &rules::MemberName::index);
    rule.member_names = std::move(members);
}

} // namespace tavrik::generator
