/* Warnings about well-formed rules: conditions that no file meets, and conditions and rules that add nothing. */
#ifndef TAVRIK_RULES_ANALYSIS_LINTS_H
#define TAVRIK_RULES_ANALYSIS_LINTS_H

#include <cstdint>
#include <span>
#include <vector>

#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"

namespace tavrik::rules::analysis {

/** A rule file without errors. */
struct LintedFile {
    const text::Source *source = nullptr;
    const text::ParsedFile *parsed = nullptr;
};

/** The warnings about each file, in the order of their places; at most kMaxErrors of each. Rules are compared across
 * all files. Each id in `shared_ids` may be that of two rules without a warning. */
std::vector<std::vector<text::Diagnostic>> FindLints(std::span<const LintedFile> files,
                                                     std::span<const uint32_t> shared_ids = {});

} // namespace tavrik::rules::analysis

#endif
