#include <algorithm>
#include <charconv>
#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "rules/text/printer.h"
#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

ExitCode Show(const RuleSource &source, const std::string &wanted) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    uint32_t number = 0;
    const char *const end = wanted.data() + wanted.size();
    const bool by_number = std::from_chars(wanted.data(), end, number).ptr == end;
    rules::RuleSet found;
    std::ranges::copy_if(set->rules, std::back_inserter(found.rules), [&](const rules::Rule &rule) {
        return by_number ? rule.rule_id == number : rule.detection_name.find(wanted) != std::string::npos;
    });
    if (found.rules.empty()) {
        base::PrintError(fmt::format("tavrik-rules: no rule has the {} '{}'; 'tavrik-rules list' shows them all\n",
                                     by_number ? "number" : "name", wanted));
        return kErrorsFound;
    }
    base::Print(rules::text::PrintRuleSet(found));
    return kFine;
}

} // namespace tavrik::rules_tool
