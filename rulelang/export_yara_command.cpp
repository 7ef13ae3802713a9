#include "rulelang/commands.h"

#include "host/text.h"
#include "rulelang/tool_files.h"
#include "rulelang/yara/export.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <map>

namespace tavrik::rules {

namespace {

// The reasons with the number of rules that each holds back, the most frequent first.
void PrintReasons(const YaraExport &made) {
    std::map<std::string_view, std::size_t> counts;
    for (const OmittedRule &rule : made.omitted)
        ++counts[rule.reason];
    std::vector<std::pair<std::string_view, std::size_t>> reasons(counts.begin(), counts.end());
    std::ranges::stable_sort(reasons, std::ranges::greater(), [](const auto &reason) { return reason.second; });
    fmt::print(stderr, "{} written, {} not:\n", host::CountText(made.exported.size(), "rule"), made.omitted.size());
    for (const auto &[reason, count] : reasons)
        fmt::print(stderr, "{:>6}  {}\n", count, reason);
}

} // namespace

ExitCode ExportToYara(const RuleSource &source, const std::string &output, const std::string &report) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    const YaraExport made = ExportYara(*set);
    if (output.empty() || output == kStandardInput)
        fmt::print("{}", made.text);
    else
        WriteAll(PathOf(output), made.text);
    if (!report.empty()) {
        std::string lines;
        for (const OmittedRule &omitted : made.omitted) {
            const Rule &rule = set->rules[omitted.place];
            lines += fmt::format("{}\t{}\t{}\n", rule.rule_id, rule.detection_name, omitted.reason);
        }
        WriteAll(PathOf(report), lines);
    }
    PrintReasons(made);
    return kFine;
}

} // namespace tavrik::rules
