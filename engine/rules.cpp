#include <algorithm>
#include <iterator>

#include "engine/failure.h"
#include "engine/scanner.h"
#include "engine/sized.h"
#include "rules/analysis/lints.h"

using namespace tavrik;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

// Warnings are about rules without errors only: others would be judged by what they lack.
void Check(tavrik_rules &rules) {
    std::vector<rules::text::Diagnostic> &diagnostics = rules.parsed.diagnostics;
    if (!rules::text::HasErrors(diagnostics)) {
        const rules::analysis::LintedFile file = {&rules.source, &rules.parsed};
        std::ranges::copy(rules::analysis::FindLints({&file, 1}).front(), std::back_inserter(diagnostics));
        std::ranges::stable_sort(diagnostics, {}, &rules::text::Diagnostic::offset);
        rules.records = std::make_shared<const rules::record::RecordSet>(rules.parsed.set);
    }
    for (const rules::text::Diagnostic &diagnostic : diagnostics)
        rules.texts.push_back({std::string(rules::text::CodeText(diagnostic.code)), diagnostic.message, diagnostic.help,
                               rules::text::Render(rules.source, diagnostic)});
}

} // namespace

} // namespace tavrik::engine

extern "C" tavrik_status tavrik_rules_parse(const char *name, const char *text, size_t length, tavrik_rules **rules,
                                            tavrik_error *error) {
    return Guard(error, [&] {
        Require(rules != nullptr, "rules");
        *rules = nullptr;
        Require(text != nullptr || length == 0, "text");
        auto made = std::make_unique<tavrik_rules>();
        made->source.name = name == nullptr ? "" : name;
        made->source.text.assign(text == nullptr ? "" : text, length);
        made->parsed = rules::text::ParseRules(made->source.text);
        engine::Check(*made);
        *rules = made.release();
    });
}

extern "C" void tavrik_rules_free(tavrik_rules *rules) {
    delete rules;
}

extern "C" size_t tavrik_rules_count(const tavrik_rules *rules) {
    return rules == nullptr || rules->records == nullptr ? 0 : rules->records->rules().size();
}

extern "C" size_t tavrik_rules_diagnostic_count(const tavrik_rules *rules) {
    return rules == nullptr ? 0 : rules->texts.size();
}

extern "C" tavrik_status tavrik_rules_diagnostic(const tavrik_rules *rules, size_t index,
                                                 tavrik_diagnostic *diagnostic) {
    return Guard(nullptr, [&] {
        Require(rules != nullptr, "rules");
        const tavrik_rules::Texts &texts = engine::At(rules->texts, index);
        const rules::text::Diagnostic &found = rules->parsed.diagnostics[index];
        const rules::text::Place place = rules::text::PlaceOf(rules->source.text, found.offset);
        tavrik_diagnostic value = {};
        value.is_error = found.severity == rules::text::Severity::Error ? 1 : 0;
        value.code = texts.code.c_str();
        value.message = texts.message.c_str();
        value.help = texts.help.c_str();
        value.rendered = texts.rendered.c_str();
        value.offset = found.offset;
        value.length = found.length;
        value.line = static_cast<uint32_t>(place.line);
        value.column = static_cast<uint32_t>(place.column);
        engine::Give(diagnostic, value, "diagnostic");
    });
}
