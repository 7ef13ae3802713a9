#include "scanner/inspection.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "evaluation/evaluator.h"
#include "rules/names.h"
#include "scanner/clean_action.h"
#include "scanner/explain_json.h"

namespace tavrik::scanner {

Json RuleObject(const evaluation::RuleExplanation &explanation, const HeuristicRule &rule,
                std::optional<uint32_t> action) {
    Json object = {{"rule", uint32_t{rule.rule_id}},
                   {"name", DetectionName(rule)},
                   {"matches", explanation.matches},
                   {"failed", explanation.failed}};
    if (action)
        object["action"] = ActionName(*action);
    object["conditions"] = Json::array();
    for (const evaluation::JudgedLine &line : explanation.conditions)
        object["conditions"].push_back({{"text", line.text},
                                        {"holds", line.is_met},
                                        {"required", line.is_required},
                                        {"has", line.value.empty() ? Json(nullptr) : Json(line.value)}});
    return object;
}

std::span<const rules::MetadataEntry> MetadataOf(const Scanner &scanner, const HeuristicRule &rule) {
    return scanner.MetadataOf(
        static_cast<std::size_t>(std::ranges::find(scanner.rules(), &rule) - scanner.rules().begin()));
}

std::string MetadataText(std::span<const rules::MetadataEntry> metadata) {
    std::string text;
    for (const rules::MetadataEntry &entry : metadata)
        text += fmt::format("      {}: {}\n", rules::NameOf(rules::MetadataKeys(), static_cast<uint32_t>(entry.key)),
                            base::Printable(entry.text));
    return text;
}

Inspection::Inspection(const Scanner &scanner, base::ByteSource &source)
    : scanner_(scanner), source_(source), features_(source), pe_(MakeHostRecords(features_.image(), source)) {}

void Inspection::RequirePe(const std::filesystem::path &file, const std::string &remedy) const {
    if (pe_.status == PeStatus::NotPe)
        throw base::Error(file, pe_.text + "; " + remedy, base::ErrorCode::NotPe);
    if (pe_.status == PeStatus::ReadFailed)
        throw base::Error(file, pe_.text, source_.error_code());
}

void Inspection::RequireRead(const std::filesystem::path &file) const {
    if (!source_.error().empty())
        throw base::Error(file, source_.error(), source_.error_code());
}

bool Inspection::Matches(const HeuristicRule &rule) {
    return evaluation::Matches(rule, features_);
}

evaluation::RuleExplanation Inspection::ExplainRule(const HeuristicRule &rule) {
    return evaluation::ExplainRule(rule, features_);
}

Explanation Inspection::ExplainEntry(uint32_t entry) {
    return Explain(*scanner_.module(), entry, source_, pe_.records);
}

Json Inspection::EntryObject(uint32_t entry) {
    return scanner::EntryObject(*scanner_.module(), entry, source_, pe_.records);
}

} // namespace tavrik::scanner
