#include "evaluation/filed_rules.h"

#include <algorithm>
#include <array>
#include <bit>
#include <tuple>

namespace tavrik::evaluation {

namespace {

namespace field = rules::header_field;

constexpr auto kExactValue = static_cast<uint8_t>(rules::Operator::Equal);

// Estimates, in an arbitrary unit, of how many files have a value, added to what the rules themselves suggest.
constexpr uint32_t kOrdinaryField = 20;
constexpr uint32_t kCommonValue = 10'000;
constexpr uint32_t kExpensiveField = 100'000;

// Fields whose values hardly repeat between unrelated programs.
constexpr uint16_t kSelectiveFields[] = {
    field::kTimeDateStamp,     field::kSizeOfCode, field::kSizeOfInitializedData, field::kAddressOfEntryPoint,
    field::kSizeOfImage,       field::kCheckSum,
    field::kResourceTable + 1, // its Size
    field::kFileSize,
};

constexpr auto kPriors = [] {
    std::array<uint32_t, kHeaderFieldCount> priors = {};
    for (std::size_t number = 0; number < priors.size(); ++number)
        priors[number] =
            (std::ranges::find(kSelectiveFields, number) != std::end(kSelectiveFields) ? 0 : kOrdinaryField) +
            (IsReadWithHeaders(static_cast<uint16_t>(number)) ? 0 : kExpensiveField);
    return priors;
}();

constexpr uint64_t KeyOf(uint16_t field, uint32_t value) {
    // Never 0, which marks an unused slot.
    return (uint64_t{field} + 1) << 32 | value;
}

constexpr uint16_t FieldOf(uint64_t key) {
    return static_cast<uint16_t>((key >> 32) - 1);
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
    static constexpr unsigned kBits = 16;

    std::vector<uint32_t> counts_ = std::vector<uint32_t>(std::size_t{1} << kBits);
};

using Conditions = std::span<const HeaderCondition>;

Conditions HeaderOf(const HeuristicRule &rule) {
    return {rule.header_conditions.elements, rule.header_conditions.count};
}

bool CountsAsExact(const HeaderCondition &condition, FiledUnder fields) {
    return condition.op == kExactValue && condition.field < kHeaderFieldCount &&
           (fields == FiledUnder::Any || IsReadWithHeaders(condition.field));
}

// Calls `visit` with each run of alternatives (of one or more) on such a field.
template <typename Visit>
void ForExactRuns(Conditions conditions, FiledUnder fields, Visit visit) {
    for (std::size_t i = 0; i < conditions.size();) {
        std::size_t end = i + 1;
        if (conditions[i].op == kExactValue) {
            while (end < conditions.size() && conditions[end].op == kExactValue &&
                   conditions[end].field == conditions[i].field)
                ++end;
            if (CountsAsExact(conditions[i], fields))
                visit(conditions.subspan(i, end - i));
        }
        i = end;
    }
}

// The runs that the fewest files are thought to meet; empty where the rule has none.
struct SelectiveRuns {
    Conditions best;
    Conditions second; // one condition on another field, whose value is read with the headers
};

SelectiveRuns ChooseRuns(const HeuristicRule &rule, FiledUnder fields, KeyCounter &counts) {
    SelectiveRuns runs;
    uint64_t best = UINT64_MAX;
    uint64_t second = UINT64_MAX;
    const auto offer_second = [&](Conditions run, uint64_t score) {
        if (score >= second || run.size() != 1 || !IsReadWithHeaders(run.front().field))
            return;
        second = score;
        runs.second = run;
    };
    ForExactRuns(HeaderOf(rule), fields, [&](Conditions run) {
        uint64_t score = 0;
        for (const HeaderCondition &condition : run)
            score += counts[KeyOf(condition.field, condition.value)] + kPriors[condition.field] +
                     (condition.value == 0 ? kCommonValue : 0);
        if (score >= best)
            return offer_second(run, score);
        if (!runs.best.empty())
            offer_second(runs.best, best);
        best = score;
        runs.best = run;
    });
    return runs;
}

} // namespace

bool CanBeFiled(const HeuristicRule &rule, FiledUnder fields) {
    return std::ranges::any_of(HeaderOf(rule),
                               [&](const HeaderCondition &condition) { return CountsAsExact(condition, fields); });
}

FiledRules::FiledRules(std::span<HeuristicRule *const> rules, std::span<const uint32_t> positions, FiledUnder fields) {
    if (positions.empty())
        return;
    // What many rules ask for, many files have.
    KeyCounter counts;
    for (const uint32_t position : positions)
        for (const HeaderCondition &condition : HeaderOf(*rules[position]))
            if (condition.op == kExactValue)
                ++counts[KeyOf(condition.field, condition.value)];

    std::vector<Filing> filings;
    filings.reserve(positions.size());
    for (const uint32_t position : positions) {
        const SelectiveRuns runs = ChooseRuns(*rules[position], fields, counts);
        Filing filing = {0, {position, 0, kNoField}};
        if (!runs.second.empty() && runs.second.front().field != runs.best.front().field)
            filing.entry = {position, runs.second.front().value, runs.second.front().field};
        for (const HeaderCondition &condition : runs.best) {
            filing.key = KeyOf(condition.field, condition.value);
            filings.push_back(filing);
        }
    }
    const auto order = [](const Filing &filing) { return std::tuple(filing.key, filing.entry.position); };
    std::ranges::sort(filings, {}, order);
    // A value may occur twice in a run.
    const auto is_same = [&](const Filing &one, const Filing &other) { return order(one) == order(other); };
    filings.erase(std::unique(filings.begin(), filings.end(), is_same), filings.end());
    BuildTable(filings);
}

void FiledRules::BuildTable(std::span<const Filing> filings) {
    const std::size_t size = std::bit_ceil(2 * filings.size() + 2);
    shift_ = 64 - static_cast<unsigned>(std::countr_zero(size));
    slots_.resize(size);
    may_exist_.resize((size + 63) / 64);
    entries_.reserve(filings.size());
    for (const auto &[key, entry] : filings) {
        std::size_t place = PlaceOf(key);
        may_exist_[place / 64] |= uint64_t{1} << place % 64;
        while (slots_[place].count != 0 && slots_[place].key != key)
            place = (place + 1) & (size - 1);
        Slot &slot = slots_[place];
        if (slot.count == 0)
            slot = {key, static_cast<uint32_t>(entries_.size()), 0};
        ++slot.count;
        entries_.push_back(entry);
        if (fields_.empty() || fields_.back() != FieldOf(key))
            fields_.push_back(FieldOf(key));
    }
}

std::size_t FiledRules::PlaceOf(uint64_t key) const {
    return static_cast<std::size_t>(HashOf(key) >> shift_);
}

std::span<const FiledRules::Entry> FiledRules::Under(uint16_t field, uint32_t value) const {
    const uint64_t key = KeyOf(field, value);
    std::size_t place = PlaceOf(key);
    if ((may_exist_[place / 64] >> place % 64 & 1) == 0)
        return {};
    for (; slots_[place].count != 0; place = (place + 1) & (slots_.size() - 1))
        if (slots_[place].key == key)
            return std::span(entries_).subspan(slots_[place].first, slots_[place].count);
    return {};
}

} // namespace tavrik::evaluation
