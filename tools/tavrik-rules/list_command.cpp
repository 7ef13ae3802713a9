#include <fmt/format.h>

#include "base/console.h"
#include "rules/names.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/json_line.h"

namespace tavrik::rules_tool {

namespace {

std::string TargetText(uint32_t target) {
    std::string text;
    for (const rules::NamedNumber &name : rules::TargetNames()) {
        if (name.number == 0 ? target == 0 : (target & name.number) != 0)
            text += (text.empty() ? "" : ",") + std::string(name.name);
    }
    return text.empty() ? fmt::format("{:#x}", target) : text;
}

} // namespace

ExitCode List(const RuleSource &source, bool json) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    for (const rules::Rule &rule : set->rules) {
        if (json) {
            base::Json line = {{"schema", kJsonSchema},
                               {"id", rule.rule_id},
                               {"name", rule.detection_name},
                               {"target", TargetText(rule.attribute_a)},
                               {"strings", rule.strings.size()},
                               {"conditions", rule.header_conditions.size() + rule.section_conditions.size()}};
            if (!rule.metadata.empty())
                line["metadata"] = MetadataJson(rule);
            PrintJsonLine(line);
        } else
            base::Print(
                fmt::format("{:>5}  {:<30} {}\n", rule.rule_id, rule.detection_name, TargetText(rule.attribute_a)));
    }
    return kFine;
}

} // namespace tavrik::rules_tool
