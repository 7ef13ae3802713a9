/* Files that are not rule texts at all. */
#ifndef TAVRIK_RULES_TEXT_FOREIGN_FILES_H
#define TAVRIK_RULES_TEXT_FOREIGN_FILES_H

#include <optional>
#include <string_view>

#include "rules/text/diagnostics.h"

namespace tavrik::rules::text {

/** What a file is that cannot be read as rules: UTF-16 (E006), binary (E005), YARA rules (E007). Nothing for a rule
 * text, with or without errors. */
std::optional<Diagnostic> FindForeignFile(std::string_view text);

} // namespace tavrik::rules::text

#endif
