#include "evaluation/rule_index.h"

#include <algorithm>
#include <bit>
#include <optional>

#include "evaluation/evaluator.h"
#include "rules/numbers.h"

namespace tavrik::evaluation {

namespace {

namespace field = rules::header_field;

constexpr auto kExactValue = static_cast<uint8_t>(rules::Operator::Equal);

// ---- Which condition a rule is filed under -------------------------------------------------------------------------

// Estimates, in an arbitrary unit, of how many files have a value, added to what the rules themselves suggest.
constexpr uint32_t kOrdinaryField = 20;
constexpr uint32_t kCommonValue = 10'000;
constexpr uint32_t kExpensiveField = 100'000;

// The first field that is not read from the headers at once.
constexpr uint16_t kFirstExpensiveField = field::kRichOffset;

// Fields whose values hardly repeat between unrelated programs.
constexpr uint16_t kSelectiveFields[] = {
    field::kTimeDateStamp,     field::kSizeOfCode, field::kSizeOfInitializedData, field::kAddressOfEntryPoint,
    field::kSizeOfImage,       field::kCheckSum,
    field::kResourceTable + 1, // its Size
    field::kFileSize,
};

uint32_t PriorOf(uint16_t field, uint32_t value) {
    uint32_t prior = std::ranges::find(kSelectiveFields, field) != std::end(kSelectiveFields) ? 0 : kOrdinaryField;
    if (value == 0)
        prior += kCommonValue;
    if (field >= kFirstExpensiveField)
        prior += kExpensiveField;
    return prior;
}

constexpr uint64_t KeyOf(uint16_t field, uint32_t value) {
    // Never 0, which marks an unused slot.
    return (uint64_t{field} + 1) << 32 | value;
}

constexpr uint64_t HashOf(uint64_t key) {
    return key * 0x9E3779B97F4A7C15;
}

// Counts keys. Two that share a counter make each other seem more common, which costs a little selectivity and no
// answer.
class KeyCounter {
public:
    uint32_t &operator[](uint64_t key) { return counts_[HashOf(key) >> (64 - kBits)]; }

private:
    static constexpr unsigned kBits = 17;

    std::vector<uint32_t> counts_ = std::vector<uint32_t>(std::size_t{1} << kBits);
};

using Conditions = std::span<const HeaderCondition>;

// Calls `visit` with each run of alternatives (of one or more) on a field that has a number.
template <typename Visit>
void ForExactRuns(Conditions conditions, Visit visit) {
    for (std::size_t i = 0; i < conditions.size();) {
        std::size_t end = i + 1;
        if (conditions[i].op == kExactValue) {
            while (end < conditions.size() && conditions[end].op == kExactValue &&
                   conditions[end].field == conditions[i].field)
                ++end;
            if (conditions[i].field < kHeaderFieldCount)
                visit(conditions.subspan(i, end - i));
        }
        i = end;
    }
}

Conditions ConditionsOf(const HeuristicRule &rule) {
    return {rule.header_conditions.elements, rule.header_conditions.count};
}

// The run that the fewest files are thought to meet; empty when the rule has none.
Conditions MostSelectiveRun(const HeuristicRule &rule, KeyCounter &counts) {
    Conditions best;
    uint64_t best_score = UINT64_MAX;
    ForExactRuns(ConditionsOf(rule), [&](Conditions run) {
        uint64_t score = 0;
        for (const HeaderCondition &condition : run)
            score += counts[KeyOf(condition.field, condition.value)] + PriorOf(condition.field, condition.value);
        if (score < best_score) {
            best_score = score;
            best = run;
        }
    });
    return best;
}

// ---- Strings -------------------------------------------------------------------------------------------------------

// A byte of the pass for all strings costs as much as this many bytes of the search for one.
constexpr uint64_t kPassCost = 16;

// At least the bytes that the search for a string looks at, when it is not there.
uint64_t SearchedBytes(const StringFeature &string, base::Region region) {
    const uint64_t window = uint64_t{string.param_c} + 2 * uint64_t{string.param_f};
    return string.param_c == 0 ? region.length : std::min(region.length, window);
}

uint64_t SearchedBytes(const HeuristicRule &rule, Features &features) {
    uint64_t sum = 0;
    for (const StringFeature &string : std::span(rule.strings.elements, rule.strings.count))
        sum += SearchedBytes(string, features.StringRegion(string));
    return sum;
}

// ---- Deciding ------------------------------------------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

// Calls `decide` and tells the observer, if there is one, how long it took.
template <typename Decide>
bool Observed(RuleObserver *observer, void (RuleObserver::*tell)(uint32_t, std::chrono::nanoseconds), uint32_t rule,
              Decide decide) {
    if (observer == nullptr)
        return decide();
    const Clock::time_point start = Clock::now();
    const bool answer = decide();
    (observer->*tell)(rule, Clock::now() - start);
    return answer;
}

} // namespace

RuleIndex::RuleIndex(std::span<HeuristicRule *const> rules) : rules_(rules) {
    // What many rules ask for, many files have.
    KeyCounter counts;
    for (const HeuristicRule *rule : rules)
        ForExactRuns(ConditionsOf(*rule), [&](Conditions run) {
            for (const HeaderCondition &condition : run)
                ++counts[KeyOf(condition.field, condition.value)];
        });

    std::vector<FiledRule> filed;
    for (uint32_t position = 0; position < rules.size(); ++position) {
        if (!AsksSomething(*rules[position]))
            continue;
        const Conditions run = MostSelectiveRun(*rules[position], counts);
        if (run.empty())
            unfiled_.push_back(position);
        for (const HeaderCondition &condition : run)
            filed.emplace_back(KeyOf(condition.field, condition.value), position);
    }
    std::ranges::sort(filed);
    filed.erase(std::unique(filed.begin(), filed.end()), filed.end()); // a value may occur twice in a run
    BuildTable(filed);
}

void RuleIndex::BuildTable(const std::vector<FiledRule> &filed) {
    const std::size_t size = std::bit_ceil(2 * filed.size() + 2);
    shift_ = 64 - static_cast<unsigned>(std::countr_zero(size));
    slots_.resize(size);
    may_exist_.resize((size + 63) / 64);
    for (const auto &[key, position] : filed) {
        std::size_t place = PlaceOf(key);
        may_exist_[place / 64] |= uint64_t{1} << place % 64;
        while (slots_[place].count != 0 && slots_[place].key != key)
            place = (place + 1) & (size - 1);
        Slot &slot = slots_[place];
        if (slot.count == 0)
            slot = {key, static_cast<uint32_t>(filed_.size()), 0};
        ++slot.count;
        filed_.push_back(position);
        const auto field = static_cast<uint16_t>((key >> 32) - 1);
        if (fields_.empty() || fields_.back() != field)
            fields_.push_back(field);
    }
}

std::size_t RuleIndex::PlaceOf(uint64_t key) const {
    return static_cast<std::size_t>(HashOf(key) >> shift_);
}

std::span<const uint32_t> RuleIndex::RulesUnder(uint16_t field, uint32_t value) const {
    const uint64_t key = KeyOf(field, value);
    std::size_t place = PlaceOf(key);
    if ((may_exist_[place / 64] >> place % 64 & 1) == 0)
        return {};
    for (; slots_[place].count != 0; place = (place + 1) & (slots_.size() - 1))
        if (slots_[place].key == key)
            return std::span(filed_).subspan(slots_[place].first, slots_[place].count);
    return {};
}

std::vector<uint32_t> RuleIndex::Match(Features &features, RuleObserver *observer) const {
    std::vector<uint32_t> matches;
    if (!features.IsPe())
        return matches;
    const auto decide = [&](uint32_t position) {
        const HeuristicRule &rule = *rules_[position];
        if (Observed(observer, &RuleObserver::OnConditions, position, [&] { return MeetsStructure(rule, features); }))
            matches.push_back(position);
    };
    for (const uint16_t field : fields_)
        if (const std::optional<uint32_t> value = features.Header(field))
            for (const uint32_t position : RulesUnder(field, *value))
                decide(position);
    for (const uint32_t position : unfiled_)
        decide(position);
    DropWithoutStrings(matches, features, observer);
    std::ranges::sort(matches);
    return matches;
}

const RuleIndex::AllStrings &RuleIndex::Strings() const {
    std::call_once(strings_are_made_, [this] {
        std::vector<const StringFeature *> all;
        for (const HeuristicRule *rule : rules_) {
            strings_.first.push_back(all.size());
            for (uint32_t i = 0; i < rule->strings.count; ++i)
                all.push_back(&rule->strings.elements[i]);
        }
        strings_.pass = std::make_unique<const StringPass>(all);
    });
    return strings_;
}

void RuleIndex::DropWithoutStrings(std::vector<uint32_t> &matches, Features &features, RuleObserver *observer) const {
    uint64_t bytes = 0;
    for (const uint32_t position : matches)
        bytes += SearchedBytes(*rules_[position], features);
    std::vector<bool> present;
    const bool in_one_pass = bytes / kPassCost > features.bytes().size();
    if (in_one_pass)
        present = Strings().pass->Search(features.bytes(),
                                         [&](const StringFeature &string) { return features.StringRegion(string); });
    std::erase_if(matches, [&](uint32_t position) {
        const HeuristicRule &rule = *rules_[position];
        return !Observed(observer, &RuleObserver::OnStrings, position, [&] {
            if (!in_one_pass)
                return MeetsStrings(rule, features);
            const std::size_t first = Strings().first[position];
            return MeetsStrings(rule, [&](std::size_t string) { return bool{present[first + string]}; });
        });
    });
}

} // namespace tavrik::evaluation
