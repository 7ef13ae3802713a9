#include "evaluation/rule_index.h"

#include <algorithm>

#include "evaluation/evaluator.h"

namespace tavrik::evaluation {

namespace {

// ---- The table of values -------------------------------------------------------------------------------------------

// Making the table takes about as long as asking every rule about so many files.
constexpr unsigned kFilesWithoutTable = 32;

// ---- Strings -------------------------------------------------------------------------------------------------------

// A byte of the pass for all strings costs as much as this many bytes of the search for one.
constexpr uint64_t kPassCost = 16;

// At least the bytes that the search for a string looks at, when it is not there.
uint64_t SearchedBytes(const StringFeature &string, base::Region region) {
    const uint64_t window = uint64_t{string.param_c} + 2 * uint64_t{string.param_f};
    return string.param_c == 0 ? region.length : std::min(region.length, window);
}

std::span<const StringFeature> StringsOf(const HeuristicRule &rule) {
    return {rule.strings.elements, rule.strings.count};
}

uint64_t SearchedBytes(const HeuristicRule &rule, Features &features) {
    uint64_t sum = 0;
    for (const StringFeature &string : StringsOf(rule))
        sum += SearchedBytes(string, features.StringRegion(string));
    return sum;
}

// ---- Deciding ------------------------------------------------------------------------------------------------------

using Clock = std::chrono::steady_clock;

// Calls `decide`; `time`, if an observer is to be told it, grows by how long that took.
template <typename Decide>
bool Timed(const RuleObserver *observer, std::chrono::nanoseconds &time, Decide decide) {
    if (observer == nullptr)
        return decide();
    const Clock::time_point start = Clock::now();
    const bool answer = decide();
    time += Clock::now() - start;
    return answer;
}

} // namespace

RuleIndex::RuleIndex(std::span<HeuristicRule *const> rules) : rules_(rules) {
    std::vector<uint32_t> expensive;
    for (uint32_t position = 0; position < rules.size(); ++position) {
        const HeuristicRule &rule = *rules[position];
        if (CanBeFiled(rule, FiledUnder::ReadWithHeaders))
            fileable_.push_back(position);
        else if (CanBeFiled(rule, FiledUnder::Any))
            expensive.push_back(position);
        else if (AsksSomething(rule))
            unfiled_.push_back(position);
    }
    expensive_ = FiledRules(rules, expensive, FiledUnder::Any);
}

void RuleIndex::Prepare() const {
    table_is_made_.Call([this] { table_ = FiledRules(rules_, fileable_, FiledUnder::ReadWithHeaders); });
}

bool RuleIndex::UsesTable(const RuleObserver *observer) const {
    if (observer == nullptr && files_.load(std::memory_order_relaxed) < kFilesWithoutTable &&
        files_.fetch_add(1, std::memory_order_relaxed) < kFilesWithoutTable)
        return false;
    Prepare();
    return true;
}

// In the order of the table, so that the file is read in the same order however the rules were found.
std::vector<RuleIndex::Survivor> RuleIndex::MeetingHeader(Features &features, RuleObserver *observer) const {
    std::vector<Survivor> survivors;
    const auto ask = [&](uint32_t position) {
        std::chrono::nanoseconds time = {};
        if (Timed(observer, time, [&] { return MeetsHeadersRead(*rules_[position], features); }))
            survivors.push_back({position, time});
        else if (observer != nullptr)
            observer->OnConditions(position, time);
    };
    if (UsesTable(observer))
        table_.ForCandidates(features, ask);
    else
        std::ranges::for_each(fileable_, ask);
    expensive_.ForCandidates(features, ask);
    std::ranges::for_each(unfiled_, ask);
    std::ranges::sort(survivors, {}, &Survivor::position);
    return survivors;
}

std::vector<uint32_t> RuleIndex::Match(Features &features, RuleObserver *observer) const {
    std::vector<uint32_t> matches;
    if (!features.IsPe())
        return matches;
    for (Survivor &survivor : MeetingHeader(features, observer)) {
        const HeuristicRule &rule = *rules_[survivor.position];
        if (Timed(observer, survivor.time, [&] { return MeetsStructure(rule, features); }))
            matches.push_back(survivor.position);
        if (observer != nullptr)
            observer->OnConditions(survivor.position, survivor.time);
    }
    DropWithoutStrings(matches, features, observer);
    return matches;
}

// `positions` are ascending; none of them are all.
const RuleIndex::Strings &RuleIndex::Made(Strings &strings, std::span<const uint32_t> positions) const {
    strings.is_made.Call([&] {
        strings.first.clear();
        std::vector<const StringFeature *> wanted;
        for (uint32_t position = 0; position < rules_.size(); ++position) {
            strings.first.push_back(wanted.size());
            if (!positions.empty() && !std::ranges::binary_search(positions, position))
                continue;
            for (const StringFeature &string : StringsOf(*rules_[position]))
                wanted.push_back(&string);
        }
        strings.pass = std::make_unique<const StringPass>(wanted);
    });
    return strings;
}

void RuleIndex::DropWithoutStrings(std::vector<uint32_t> &matches, Features &features, RuleObserver *observer) const {
    uint64_t of_unfiled = 0;
    uint64_t of_others = 0;
    for (const uint32_t position : matches)
        (IsUnfiled(position) ? of_unfiled : of_others) += SearchedBytes(*rules_[position], features);
    const auto is_much = [&](uint64_t bytes) { return bytes / kPassCost > features.bytes().size(); };
    const Strings *strings = nullptr;
    if (is_much(of_others))
        strings = &Made(all_strings_, {});
    else if (is_much(of_unfiled))
        strings = &Made(unfiled_strings_, unfiled_);
    std::vector<bool> present;
    if (strings != nullptr)
        present = strings->pass->Search(features.bytes(),
                                        [&](const StringFeature &string) { return features.StringRegion(string); });
    std::erase_if(matches, [&](uint32_t position) {
        const HeuristicRule &rule = *rules_[position];
        const bool was_passed = strings == &all_strings_ || (strings != nullptr && IsUnfiled(position));
        std::chrono::nanoseconds time = {};
        const bool met = Timed(observer, time, [&] {
            if (!was_passed)
                return MeetsStrings(rule, features);
            const std::size_t first = strings->first[position];
            return MeetsStrings(rule, [&](std::size_t string) { return bool{present[first + string]}; });
        });
        if (observer != nullptr)
            observer->OnStrings(position, time);
        return !met;
    });
}

} // namespace tavrik::evaluation
