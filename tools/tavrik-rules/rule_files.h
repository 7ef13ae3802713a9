/* Rule files that commands read, and their findings. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_RULE_FILES_H
#define TAVRIK_TOOLS_TAVRIK_RULES_RULE_FILES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rules/model.h"
#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"

namespace tavrik::rules_tool {

/** The file name that means standard input. */
inline constexpr std::string_view kStandardInput = "-";

/** A rule file and what was found in it. */
struct RuleText {
    rules::text::Source source;
    rules::text::ParsedFile parsed; // views into the source

    /** Reads and parses a file. Throws base::Error when it cannot be read. */
    explicit RuleText(const std::string &name);
    RuleText(const RuleText &) = delete;
    RuleText &operator=(const RuleText &) = delete;

    /** Prints what was found on standard error; returns whether there were errors. */
    bool PrintDiagnostics() const;
};

/** The rules of all files, in order; nothing when one has errors, which are printed. Throws base::Error. */
std::optional<rules::RuleSet> LoadRules(const std::vector<std::string> &files);

} // namespace tavrik::rules_tool

#endif
