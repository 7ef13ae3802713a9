#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "base/text.h"
#include "database/profile/profile.h"
#include "rules/analysis/lints.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/json_line.h"
#include "tools/tavrik-rules/rule_files.h"
#include "tools/tavrik-rules/sarif.h"

namespace tavrik::rules_tool {

namespace {

base::Json ToJson(const rules::text::Source &source, const rules::text::Diagnostic &diagnostic) {
    const rules::text::Place place = rules::text::PlaceOf(source.text, diagnostic.offset);
    return {{"schema", kJsonSchema},
            {"file", source.name},
            {"line", place.line},
            {"column", place.column},
            {"severity", diagnostic.severity == rules::text::Severity::Error ? "error" : "warning"},
            {"code", rules::text::CodeText(diagnostic.code)},
            {"message", diagnostic.message},
            {"help", diagnostic.help}};
}

// Adds the lints to the diagnostics of each text.
void AddLints(const rules::text::RuleFiles &texts) {
    std::vector<rules::analysis::LintedFile> linted;
    for (const auto &text : texts)
        linted.push_back({&text->source, &text->parsed});
    const std::vector<std::vector<rules::text::Diagnostic>> lints =
        rules::analysis::FindLints(linted, profile::kDoubleIds);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        std::vector<rules::text::Diagnostic> &all = texts[i]->parsed.diagnostics;
        std::ranges::copy(lints[i], std::back_inserter(all));
        std::ranges::stable_sort(all, {}, &rules::text::Diagnostic::offset);
    }
}

} // namespace

ExitCode Check(const std::vector<std::string> &files, CheckFormat format) {
    rules::text::RuleFileReader reader;
    for (const std::string &name : files)
        reader.Read(name);
    const rules::text::RuleFiles &texts = reader.files();
    // Rules with errors are not complete, and would be judged by what they lack.
    if (!reader.HasErrors())
        AddLints(texts);
    std::size_t errors = 0;
    std::size_t warnings = 0;
    std::size_t rules = 0;
    for (const auto &text : texts) {
        for (const rules::text::Diagnostic &diagnostic : text->parsed.diagnostics) {
            ++(diagnostic.severity == rules::text::Severity::Error ? errors : warnings);
            if (format == CheckFormat::JsonLines)
                PrintJsonLine(ToJson(text->source, diagnostic));
            else if (format == CheckFormat::Text)
                base::Print(rules::text::Render(text->source, diagnostic));
        }
        rules += text->parsed.set.rules.size();
    }
    if (format == CheckFormat::Sarif)
        base::Print(SarifOf(texts));
    if (format == CheckFormat::Text)
        base::Print(fmt::format("{}, {}, {}\n", base::CountText(rules, "rule"), base::CountText(errors, "error"),
                                base::CountText(warnings, "warning")));
    return errors > 0 ? kErrorsFound : warnings > 0 ? kWarningsFound : kFine;
}

} // namespace tavrik::rules_tool
