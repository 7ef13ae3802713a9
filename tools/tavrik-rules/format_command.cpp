#include "base/atomic_file.h"
#include "base/console.h"
#include "base/text.h"
#include "rules/text/formatter.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

ExitCode Format(const std::vector<std::string> &files, bool check) {
    bool errors = false;
    bool changes = false;
    for (const std::string &name : files) {
        const rules::text::RuleFile text(name);
        if (PrintDiagnostics(text)) {
            errors = true;
            continue;
        }
        const std::string formatted = rules::text::FormatRules(text.parsed);
        const bool differs = formatted != text.source.text;
        changes = changes || differs;
        if (check && differs)
            base::Print(text.source.name + "\n");
        if (!check && name == kStandardInput)
            base::Print(formatted);
        else if (!check && differs)
            base::WriteWholeFile(base::PathOf(name), formatted);
    }
    return errors || (check && changes) ? kErrorsFound : kFine;
}

} // namespace tavrik::rules_tool
