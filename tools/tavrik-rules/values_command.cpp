#include "base/console.h"
#include "draft/drafter.h"
#include "rules/text/printer.h"
#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

ExitCode Values(const std::vector<std::string> &files) {
    const draft::GivenFiles given(files);
    rules::Rule rule = draft::RuleOf(given, draft::SharedRows(given, rules::kMaxStrings));
    rule.detection_name = "Values";
    base::Print(rules::text::PrintRule(rule));
    return kFine;
}

} // namespace tavrik::rules_tool
