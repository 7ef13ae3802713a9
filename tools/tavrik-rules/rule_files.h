/* Rule files that commands read, and their findings. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_RULE_FILES_H
#define TAVRIK_TOOLS_TAVRIK_RULES_RULE_FILES_H

#include <optional>
#include <string>
#include <vector>

#include "rules/model.h"
#include "rules/text/rule_files.h"

namespace tavrik::rules_tool {

using rules::text::kStandardInput;

/** Prints what was found in a file on standard error; returns whether there were errors. */
bool PrintDiagnostics(const rules::text::RuleFile &file);

/** The rules of all files and of what they include, in order; nothing when one has errors, which are printed. Throws
 * base::Error. */
std::optional<rules::RuleSet> LoadRules(const std::vector<std::string> &files);

} // namespace tavrik::rules_tool

#endif
