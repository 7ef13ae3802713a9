#include "scanner/explain.h"

#include <optional>

#include <fmt/format.h>

#include "base/text.h"
#include "engine/failure.h"
#include "engine/scanner.h"
#include "engine/sized.h"
#include "evaluation/features.h"
#include "evaluation/rule_explanation.h"
#include "scanner/host_records.h"

using namespace tavrik;
using engine::Failure;
using engine::Guard;
using engine::Require;

struct tavrik_explanation {
    std::string text;
    bool holds = false;
};

namespace tavrik::engine {

namespace {

void RequireSize(const Input &input, uint64_t most) {
    if (most != 0 && input.size() > most)
        throw Failure(TAVRIK_ERROR_TOO_LARGE,
                      fmt::format("{}: is larger than {} bytes", base::PrintablePath(input.name()), most));
}

// Opens the input and hands the explanation that `explain(input, explanation)` fills to the caller.
template <typename Explain>
tavrik_status MakeExplanation(const tavrik_scanner *scanner, const tavrik_input *input, const tavrik_cancel *cancel,
                              tavrik_explanation **explanation, tavrik_error *error, Explain explain) {
    return Guard(error, [&] {
        Require(explanation != nullptr, "explanation");
        *explanation = nullptr;
        Require(scanner != nullptr, "scanner");
        Input source = scanner->Open(input, cancel);
        RequireSize(source, scanner->settings.max_size);
        auto made = std::make_unique<tavrik_explanation>();
        explain(source, *made);
        source.RequireRead();
        *explanation = made.release();
    });
}

} // namespace

} // namespace tavrik::engine

extern "C" tavrik_status tavrik_explain_rule(const tavrik_scanner *scanner, const tavrik_input *input, uint32_t rule,
                                             tavrik_cancel *cancel, tavrik_explanation **explanation,
                                             tavrik_error *error) {
    return engine::MakeExplanation(
        scanner, input, cancel, explanation, error, [&](engine::Input &source, tavrik_explanation &made) {
            evaluation::Features features(source);
            bool is_there = false;
            for (const HeuristicRule *record : scanner->rules) {
                if (record->rule_id != rule)
                    continue;
                is_there = true;
                const evaluation::RuleExplanation one = evaluation::ExplainRule(*record, features);
                made.text += one.text;
                made.holds = made.holds || one.matches;
            }
            if (!is_there)
                throw Failure(TAVRIK_ERROR_NO_SUCH_RULE, fmt::format("there is no rule {}", rule));
        });
}

extern "C" tavrik_status tavrik_explain_locator(const tavrik_scanner *scanner, const tavrik_input *input,
                                                uint32_t entry, tavrik_cancel *cancel, tavrik_explanation **explanation,
                                                tavrik_error *error) {
    return engine::MakeExplanation(
        scanner, input, cancel, explanation, error, [&](engine::Input &source, tavrik_explanation &made) {
            Require(entry < LOCATOR_COUNT, "the entry");
            engine::RequireSize(source, scanner::kLargestFile);
            evaluation::Features features(source);
            const scanner::PeResult pe = scanner::MakeHostRecords(features.image(), source);
            if (pe.status != scanner::PeStatus::Parsed) {
                made.text = pe.text + '\n';
                return;
            }
            const scanner::Explanation one = scanner::Explain(scanner->loaded->module(), entry, source, pe.records);
            made.text = one.text;
            made.holds = one.found;
        });
}

extern "C" void tavrik_explanation_free(tavrik_explanation *explanation) {
    delete explanation;
}

extern "C" const char *tavrik_explanation_text(const tavrik_explanation *explanation) {
    return explanation == nullptr ? "" : explanation->text.c_str();
}

extern "C" uint32_t tavrik_explanation_holds(const tavrik_explanation *explanation) {
    return explanation != nullptr && explanation->holds ? 1 : 0;
}
