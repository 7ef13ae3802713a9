#include "tools/tavrik-rules/rule_files.h"

#include "base/console.h"

namespace tavrik::rules_tool {

bool PrintDiagnostics(const rules::text::RuleFile &file) {
    for (const rules::text::Diagnostic &diagnostic : file.parsed.diagnostics)
        base::PrintError(rules::text::Render(file.source, diagnostic));
    return rules::text::HasErrors(file.parsed.diagnostics);
}

std::optional<rules::RuleSet> LoadRules(const std::vector<std::string> &files) {
    rules::text::RuleFileReader reader;
    for (const std::string &name : files)
        reader.Read(name);
    for (const auto &file : reader.files())
        PrintDiagnostics(*file);
    return reader.HasErrors() ? std::nullopt : std::optional(reader.Rules());
}

} // namespace tavrik::rules_tool
