/* The command line of tavrik-scan. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrik::scan_tool {

/** Runs the command that the arguments, the program's name first, specify. Returns the program's exit code. */
int RunCommandLine(std::vector<std::string> arguments);

/** Parses a number of bytes such as "4096", "64K", "10M" or "2G"; nothing when the text is not one. */
std::optional<uint64_t> ParseSize(const std::string &text);

} // namespace tavrik::scan_tool

#endif
