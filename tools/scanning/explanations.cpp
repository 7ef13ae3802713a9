#include "tools/scanning/explanations.h"

#include <functional>
#include <optional>
#include <span>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "scanner/inspection.h"
#include "scanner/watched_source.h"

namespace tavrik::scanning {

namespace {

using Metadata = std::span<const rules::MetadataEntry>;
using Visit =
    std::function<void(const HeuristicRule &rule, const evaluation::RuleExplanation &explanation, Metadata metadata)>;

// Calls `visit` with each rule and its explanation. Returns whether rules are asked of the file.
bool ForEachRule(const scanner::Scanner &scanner, const scanner::FileReport &report, const Visit &visit) {
    try {
        std::optional<base::FileSource> reopened;
        base::ByteSource &opened = report.stream ? *report.stream : reopened.emplace(report.file);
        scanner::WatchedSource source(opened, scanner::Deadline(scanner.settings().timeout));
        scanner::Inspection file(scanner, source);
        if (!file.features().IsPe())
            return false;
        for (std::size_t place = 0; place < scanner.rules().size(); ++place) {
            const HeuristicRule &rule = *scanner.rules()[place];
            const evaluation::RuleExplanation explanation = file.ExplainRule(rule);
            file.RequireRead(report.file);
            visit(rule, explanation, scanner.MetadataOf(place));
        }
    } catch (const base::Error &) {
        // The scan has read the file a moment ago; what is missing is missing in the output.
    }
    return true;
}

bool WasScanned(const scanner::FileReport &report) {
    return report.status == scanner::ScanStatus::Scanned || report.status == scanner::ScanStatus::NotPe;
}

} // namespace

std::string ExplainRules(const scanner::Scanner &scanner, const scanner::FileReport &report) {
    if (!WasScanned(report))
        return "";
    const std::string file = base::PrintablePath(report.file);
    std::string text;
    const bool is_asked =
        ForEachRule(scanner, report, [&](const HeuristicRule &rule, const auto &explanation, Metadata metadata) {
            const std::string verdict =
                explanation.matches
                    ? "matches"
                    : fmt::format("does not match, {} not met",
                                  explanation.failed == 1 ? "1 condition is"
                                                          : fmt::format("{} conditions are", explanation.failed));
            text += fmt::format("\n{}: rule {} \"{}\": {}\n{}", file, uint32_t{rule.rule_id},
                                base::Printable(scanner::DetectionName(rule)), verdict,
                                scanner::MetadataText(metadata) + explanation.text);
        });
    if (!is_asked)
        return fmt::format("{}: no PE file, which rules are not asked of\n", file);
    return text.empty() ? "" : text + '\n';
}

std::string ExplainedLine(const scanner::Scanner &scanner, const scanner::FileReport &report) {
    scanner::Json object = scanner::ReportObject(report);
    if (WasScanned(report)) {
        scanner::Json &explanations = object["explanations"] = scanner::Json::array();
        ForEachRule(scanner, report, [&](const HeuristicRule &rule, const auto &explanation, Metadata metadata) {
            explanations.push_back(scanner::RuleObject(explanation, rule));
            if (!metadata.empty())
                explanations.back()["metadata"] = scanner::MetadataObject(metadata);
        });
    }
    return scanner::LineOf(object) + '\n';
}

} // namespace tavrik::scanning
