/* Findings as a log of the Static Analysis Results Interchange Format. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_SARIF_H
#define TAVRIK_TOOLS_TAVRIK_RULES_SARIF_H

#include <string>

#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

/** All diagnostics as one SARIF 2.1.0 document (OASIS standard of 2020) with a line feed. File names become URI
 * references; columns count code points, as in the text output. */
std::string SarifOf(const rules::text::RuleFiles &texts);

} // namespace tavrik::rules_tool

#endif
