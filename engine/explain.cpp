#include <fmt/format.h>

#include "engine/failure.h"
#include "engine/scanner.h"
#include "engine/sized.h"
#include "scanner/inspection.h"

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

// Opens the input and hands the explanation that `explain(input, explanation)` fills to the caller.
template <typename Explain>
tavrik_status MakeExplanation(const tavrik_scanner *scanner, const tavrik_input *input, const tavrik_cancel *cancel,
                              tavrik_explanation **explanation, tavrik_error *error, Explain explain) {
    return Guard(error, [&] {
        Require(explanation != nullptr, "explanation");
        *explanation = nullptr;
        Require(scanner != nullptr, "scanner");
        Input opened = scanner->OpenWithin(input, cancel);
        auto made = std::make_unique<tavrik_explanation>();
        scanner::Inspection inspection(*scanner->scanner, opened.watched());
        explain(inspection, *made);
        inspection.RequireRead(opened.name());
        *explanation = made.release();
    });
}

} // namespace

} // namespace tavrik::engine

extern "C" tavrik_status tavrik_explain_rule(const tavrik_scanner *scanner, const tavrik_input *input, uint32_t rule,
                                             tavrik_cancel *cancel, tavrik_explanation **explanation,
                                             tavrik_error *error) {
    return engine::MakeExplanation(
        scanner, input, cancel, explanation, error, [&](scanner::Inspection &file, tavrik_explanation &made) {
            bool is_there = false;
            for (const HeuristicRule *record : scanner->scanner->rules()) {
                if (record->rule_id != rule)
                    continue;
                is_there = true;
                const evaluation::RuleExplanation one = file.ExplainRule(*record);
                made.text += scanner::MetadataText(scanner::MetadataOf(*scanner->scanner, *record));
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
        scanner, input, cancel, explanation, error, [&](scanner::Inspection &file, tavrik_explanation &made) {
            Require(entry < LOCATOR_COUNT, "the entry");
            if (file.features().image().size() > scanner::kLargestFile)
                throw Failure(TAVRIK_ERROR_TOO_LARGE,
                              fmt::format("is larger than {} bytes", uint64_t{scanner::kLargestFile}));
            if (!file.IsPe()) {
                made.text = file.pe().text + '\n';
                return;
            }
            const scanner::Explanation one = file.ExplainEntry(entry);
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
