#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/text.h"
#include "rules/yara/export.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

namespace {

// The reasons with the number of rules that each holds back, the most frequent first.
void PrintReasons(const rules::yara::YaraExport &made) {
    std::map<std::string_view, std::size_t> counts;
    for (const rules::yara::OmittedRule &rule : made.omitted)
        ++counts[rule.reason];
    std::vector<std::pair<std::string_view, std::size_t>> reasons(counts.begin(), counts.end());
    std::ranges::stable_sort(reasons, std::ranges::greater(), [](const auto &reason) { return reason.second; });
    base::PrintError(
        fmt::format("{} written, {} not:\n", base::CountText(made.exported.size(), "rule"), made.omitted.size()));
    for (const auto &[reason, count] : reasons)
        base::PrintError(fmt::format("{:>6}  {}\n", count, reason));
}

} // namespace

ExitCode ExportToYara(const RuleSource &source, const std::string &output, const std::string &report) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    const rules::yara::YaraExport made = rules::yara::ExportYara(*set);
    if (output.empty() || output == kStandardInput)
        base::Print(made.text);
    else
        base::WriteWholeFile(base::PathOf(output), made.text);
    if (!report.empty()) {
        std::string lines;
        for (const rules::yara::OmittedRule &omitted : made.omitted) {
            const rules::Rule &rule = set->rules[omitted.place];
            lines += fmt::format("{}\t{}\t{}\n", rule.rule_id, rule.detection_name, omitted.reason);
        }
        base::WriteWholeFile(base::PathOf(report), lines);
    }
    PrintReasons(made);
    return kFine;
}

} // namespace tavrik::rules_tool
