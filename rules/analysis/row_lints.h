/* Warnings about single parts of a rule. */
#ifndef TAVRIK_RULES_ANALYSIS_ROW_LINTS_H
#define TAVRIK_RULES_ANALYSIS_ROW_LINTS_H

#include <optional>
#include <string>
#include <vector>

#include "rules/analysis/name_logic.h"
#include "rules/model.h"
#include "rules/text/diagnostics.h"

namespace tavrik::rules::analysis {

/** A warning about an element of a rule, or about its head where `at` is nothing. */
struct RowLint {
    text::Code code;
    std::optional<ElementOf> at;
    std::string message;
    std::string help;
};

/** Empty detection names (W513), strings of wildcards only (W510), repeated strings (W511), and names of functions that
 * begin like an ordinal and are none (W512). */
std::vector<RowLint> FindRowLints(const Rule &rule);

} // namespace tavrik::rules::analysis

#endif
