#include "tools/scanning/rule_summary.h"

#include <algorithm>
#include <numeric>
#include <set>

#include <fmt/format.h>

#include "base/text.h"

namespace tavrik::scanning {

namespace {

uint64_t Sum(const std::vector<uint64_t> &counts) {
    return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
}

double SecondsOf(const scanner::Profile::RuleCost &cost) {
    return std::chrono::duration<double>(cost.conditions + cost.strings).count();
}

} // namespace

std::size_t RuleSummary::Group(const std::string &name) {
    const std::lock_guard lock(mutex_);
    const auto known = std::ranges::find(names_, name);
    if (known != names_.end())
        return static_cast<std::size_t>(known - names_.begin());
    names_.push_back(name);
    files_.push_back(0);
    return names_.size() - 1;
}

std::size_t RuleSummary::GroupOf(const std::filesystem::path &path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored))
        return Group(base::PathText(path));
    const std::filesystem::path folder = path.parent_path();
    return Group(folder.empty() ? "." : base::PathText(folder));
}

void RuleSummary::Add(const scanner::FileReport &report, std::size_t group) {
    const std::lock_guard lock(mutex_);
    report.ForEach([&](const scanner::FileReport &each) {
        if (each.status != scanner::ScanStatus::Scanned && each.status != scanner::ScanStatus::NotPe)
            return;
        ++files_[group];
        for (const scanner::Detection &detection : each.detections) {
            Counts &counts = matched_[detection.place];
            counts.resize(names_.size());
            ++counts[group];
        }
    });
}

std::vector<std::size_t> RuleSummary::Shown() const {
    std::set<std::size_t> shown;
    for (const auto &[place, counts] : matched_)
        shown.insert(place);
    const std::size_t all = scanner_.rules().size();
    for (std::size_t place = all - scanner_.more_rules(); place < all; ++place)
        shown.insert(place);
    return {shown.begin(), shown.end()};
}

RuleSummary::Counts RuleSummary::MatchedBy(std::size_t place) const {
    const auto found = matched_.find(place);
    Counts counts = found == matched_.end() ? Counts() : found->second;
    counts.resize(names_.size());
    return counts;
}

std::string RuleSummary::Text(const scanner::Profile &profile) const {
    std::string text;
    for (const std::size_t place : Shown()) {
        const HeuristicRule &rule = *scanner_.rules()[place];
        const Counts matched = MatchedBy(place);
        const scanner::Profile::RuleCost cost = profile.CostOf(static_cast<uint32_t>(place));
        text += fmt::format("rule {} \"{}\": matches {} of {}, asked of {}, {:.3f} ms\n", uint32_t{rule.rule_id},
                            base::Printable(scanner::DetectionName(rule)), Sum(matched),
                            base::CountText(Sum(files_), "file"), cost.asked, 1e3 * SecondsOf(cost));
        for (std::size_t group = 0; group < names_.size(); ++group)
            if (names_.size() > 1 && matched[group] > 0)
                text +=
                    fmt::format("    {}: {} of {}\n", base::Printable(names_[group]), matched[group], files_[group]);
    }
    return text;
}

scanner::Json RuleSummary::Object(const scanner::Profile &profile) const {
    using scanner::Json;
    Json summary = {{"places", Json::array()}, {"rules", Json::array()}};
    for (std::size_t group = 0; group < names_.size(); ++group)
        summary["places"].push_back({{"name", names_[group]}, {"files", files_[group]}});
    for (const std::size_t place : Shown()) {
        const HeuristicRule &rule = *scanner_.rules()[place];
        const Counts matched = MatchedBy(place);
        const scanner::Profile::RuleCost cost = profile.CostOf(static_cast<uint32_t>(place));
        Json object = {{"rule", uint32_t{rule.rule_id}},
                       {"name", scanner::DetectionName(rule)},
                       {"files", Sum(matched)},
                       {"by_place", Json::array()},
                       {"asked", cost.asked},
                       {"seconds", SecondsOf(cost)}};
        for (std::size_t group = 0; group < names_.size(); ++group)
            if (matched[group] > 0)
                object["by_place"].push_back({{"name", names_[group]}, {"files", matched[group]}});
        summary["rules"].push_back(std::move(object));
    }
    return {{"schema", scanner::kJsonSchema}, {"summary", std::move(summary)}};
}

} // namespace tavrik::scanning
