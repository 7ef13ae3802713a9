/* The files that the commands of tavrik-rules read and write. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_TOOL_FILES_H
#define TAVRIK_TOOLS_TAVRIK_RULES_TOOL_FILES_H

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "rules/model.h"
#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"

namespace tavrik::rules_tool {

/** The name that stands for standard input. */
inline constexpr std::string_view kStandardInput = "-";

/** Something other than the rules is wrong; the text says what and what to do. */
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** The path that a user's argument names. */
std::filesystem::path PathOf(const std::string &name);

/** Writes a file through a second one, so that a failure leaves what was there. Throws ToolError. */
void WriteAll(const std::filesystem::path &path, std::string_view text);

/** Writes a file unless it holds this text already. Throws ToolError. */
void WriteIfChanged(const std::filesystem::path &path, std::string_view text);

/** A rule file and what was found in it. */
struct RuleText {
    rules::text::Source source;
    rules::text::ParsedFile parsed; // views into the source

    /** Reads and parses a file. Throws ToolError when it cannot be read. */
    explicit RuleText(const std::string &name);
    RuleText(const RuleText &) = delete;
    RuleText &operator=(const RuleText &) = delete;

    /** Prints what was found on standard error; returns whether there were errors. */
    bool PrintDiagnostics() const;
};

/** The rules of all files, in order; nothing when one has errors, which are printed. Throws ToolError. */
std::optional<rules::RuleSet> LoadRules(const std::vector<std::string> &files);

} // namespace tavrik::rules_tool

#endif
