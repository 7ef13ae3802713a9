#include "scanner/profile.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "base/text.h"
#include "scanner/scan.h"

namespace tavrik::scanner {

namespace {

constexpr std::size_t kShownRules = 10;

// By the values of Step. Time outside the work on files has no line.
constexpr std::array<const char *, static_cast<std::size_t>(Step::Count)> kStepNames = {
    nullptr, "open", "sha256", "headers", "rules", "clean actions", "locators", "unpack", "carve", "output",
};

double Milliseconds(Profile::Duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

} // namespace

Step Profile::Enter(Step step) {
    const Clock::time_point now = Clock::now();
    steps_[static_cast<std::size_t>(step_)] += now - since_;
    since_ = now;
    return std::exchange(step_, step);
}

void Profile::OnConditions(uint32_t rule, Duration time) {
    RuleCost &cost = rules_[rule];
    ++cost.asked;
    cost.conditions += time;
}

void Profile::OnStrings(uint32_t rule, Duration time) {
    rules_[rule].strings += time;
}

void Profile::Add(const Profile &other) {
    for (std::size_t step = 0; step < steps_.size(); ++step)
        steps_[step] += other.steps_[step];
    reading_ += other.reading_;
    for (std::size_t step = 0; step < read_.size(); ++step) {
        read_[step].calls += other.read_[step].calls;
        read_[step].bytes += other.read_[step].bytes;
    }
    for (const auto &[rule, cost] : other.rules_) {
        RuleCost &sum = rules_[rule];
        sum.asked += cost.asked;
        sum.conditions += cost.conditions;
        sum.strings += cost.strings;
    }
}

Profile::RuleCost Profile::CostOf(uint32_t rule) const {
    const auto found = rules_.find(rule);
    return found == rules_.end() ? RuleCost{} : found->second;
}

std::string Profile::Text(std::span<HeuristicRule *const> rules) const {
    std::string text = "Time in all threads together:\n";
    Duration sum = {};
    for (std::size_t step = 0; step < steps_.size(); ++step)
        if (kStepNames[step] != nullptr)
            sum += steps_[step];
    const auto add_line = [&](const char *name, Duration time) {
        const double share =
            sum.count() == 0 ? 0 : 100.0 * static_cast<double>(time.count()) / static_cast<double>(sum.count());
        fmt::format_to(std::back_inserter(text), "  {:<28}{:>12.3f} ms {:>6.1f} %\n", name, Milliseconds(time), share);
    };

    Duration conditions = {};
    Duration strings = {};
    for (const auto &[rule, cost] : rules_) {
        conditions += cost.conditions;
        strings += cost.strings;
    }
    const Duration all_rules = steps_[static_cast<std::size_t>(Step::Rules)];
    for (std::size_t step = 0; step < steps_.size(); ++step) {
        if (kStepNames[step] == nullptr || steps_[step].count() == 0)
            continue;
        add_line(kStepNames[step], steps_[step]);
        if (step == static_cast<std::size_t>(Step::Rules)) {
            add_line("  index", all_rules - conditions - strings);
            add_line("  structure of rules asked", conditions);
            add_line("  strings of rules left", strings);
        }
    }
    add_line("reading, within the above", reading_);

    std::vector<std::pair<uint32_t, RuleCost>> by_cost(rules_.begin(), rules_.end());
    const auto cost_of = [](const auto &rule) { return rule.second.conditions + rule.second.strings; };
    std::sort(by_cost.begin(), by_cost.end(), [&](const auto &one, const auto &other) {
        return std::pair(cost_of(other), one.first) < std::pair(cost_of(one), other.first);
    });
    fmt::format_to(std::back_inserter(text), "{} of {} rules were asked; those that cost most:\n", by_cost.size(),
                   rules.size());
    by_cost.resize(std::min(by_cost.size(), kShownRules));
    for (const auto &[position, cost] : by_cost) {
        const HeuristicRule &rule = *rules[position];
        fmt::format_to(std::back_inserter(text), "  {:>12.3f} ms, asked {:>6} times: rule {} \"{}\"\n",
                       Milliseconds(cost.conditions + cost.strings), cost.asked, uint32_t{rule.rule_id},
                       base::Printable(DetectionName(rule)));
    }
    return text;
}

} // namespace tavrik::scanner
