#include "base/console.h"
#include "rules/text/printer.h"
#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

ExitCode Dump(const RuleSource &source) {
    const auto set = LoadSource(source);
    if (!set)
        return kErrorsFound;
    base::Print(rules::text::PrintRuleSet(*set));
    return kFine;
}

} // namespace tavrik::rules_tool
