#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "database/profile/profile.h"
#include "database/profile/record_facts.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/json_line.h"

namespace tavrik::rules_tool {

namespace {

void PrintCounts(const rules::RuleSet &set) {
    base::Print(
        fmt::format("{} rules\n\n{:<24}{:>8}{:>10}{:>10}\n", set.rules.size(), "list", "rules", "largest", "elements"));
    for (const profile::ListProfile &list : profile::ListProfiles()) {
        std::size_t rules = 0;
        std::size_t largest = 0;
        std::size_t elements = 0;
        for (const rules::Rule &rule : set.rules) {
            const std::size_t size = list.size(rule);
            rules += size > 0 ? 1 : 0;
            largest = std::max(largest, size);
            elements += size;
        }
        base::Print(fmt::format("{:<24}{:>8}{:>10}{:>10}\n", list.name, rules, largest, elements));
    }
}

ExitCode PrintFacts(const std::vector<profile::FactResult> &facts, bool json) {
    std::size_t deviations = 0;
    for (const profile::FactResult &fact : facts) {
        if (!fact.Holds())
            ++deviations;
        if (json)
            PrintJsonLine({{"schema", kJsonSchema},
                           {"fact", fact.name},
                           {"expected", fact.expected},
                           {"actual", fact.actual},
                           {"holds", fact.Holds()}});
        else
            base::Print(fmt::format("{:<10} {}: expected {}, actual {}\n", fact.Holds() ? "met" : "DEVIATES", fact.name,
                                    fact.expected, fact.actual));
    }
    if (!json)
        base::Print(fmt::format("{} facts, {} deviations\n", facts.size(), deviations));
    return deviations == 0 ? kFine : kErrorsFound;
}

} // namespace

ExitCode Stats(const RuleSource &source, bool verify, bool json) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    if (!verify) {
        PrintCounts(*set);
        return kFine;
    }
    std::vector<profile::FactResult> facts = profile::CheckProfile(*set);
    if (source.files.empty())
        std::ranges::move(profile::CheckRecords(StoredModule(source.module).table()), std::back_inserter(facts));
    return PrintFacts(facts, json);
}

} // namespace tavrik::rules_tool
