#include <algorithm>
#include <iterator>

#include "engine/failure.h"
#include "engine/report.h"
#include "engine/scanner.h"
#include "engine/sized.h"
#include "rules/analysis/lints.h"

using namespace tavrik;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

// Warnings are about rules without errors only: others would be judged by what they lack.
void Check(tavrik_rules &rules, rules::text::ParsedFile parsed) {
    if (!rules::text::HasErrors(parsed.diagnostics)) {
        const rules::analysis::LintedFile file = {&rules.source, &parsed};
        std::ranges::copy(rules::analysis::FindLints({&file, 1}).front(), std::back_inserter(parsed.diagnostics));
        std::ranges::stable_sort(parsed.diagnostics, {}, &rules::text::Diagnostic::offset);
        for (const rules::Rule &rule : parsed.set.rules)
            rules.metadata.push_back(MetadataText(rule.metadata));
        rules.records = std::make_shared<const rules::record::RecordSet>(parsed.set);
        rules.set = std::make_shared<const rules::RuleSet>(std::move(parsed.set));
    }
    rules.diagnostics = std::move(parsed.diagnostics);
    for (const rules::text::Diagnostic &diagnostic : rules.diagnostics)
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
        engine::Check(*made, rules::text::ParseRules(made->source.text));
        *rules = made.release();
    });
}

extern "C" void tavrik_rules_free(tavrik_rules *rules) {
    delete rules;
}

extern "C" size_t tavrik_rules_count(const tavrik_rules *rules) {
    return rules == nullptr ? 0 : rules->metadata.size();
}

extern "C" tavrik_status tavrik_rules_rule(const tavrik_rules *rules, size_t index, tavrik_rule *rule) {
    return Guard(nullptr, [&] {
        Require(rules != nullptr, "rules");
        const std::string &metadata = engine::At(rules->metadata, index);
        const rules::Rule &found = rules->set->rules[index];
        engine::Give(rule, {0, found.rule_id, found.detection_name.c_str(), metadata.c_str()}, "rule");
    });
}

extern "C" size_t tavrik_rules_diagnostic_count(const tavrik_rules *rules) {
    return rules == nullptr ? 0 : rules->texts.size();
}

extern "C" tavrik_status tavrik_rules_diagnostic(const tavrik_rules *rules, size_t index,
                                                 tavrik_diagnostic *diagnostic) {
    return Guard(nullptr, [&] {
        Require(rules != nullptr, "rules");
        const tavrik_rules::Texts &texts = engine::At(rules->texts, index);
        const rules::text::Diagnostic &found = rules->diagnostics[index];
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
