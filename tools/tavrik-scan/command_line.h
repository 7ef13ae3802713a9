/* The command line of tavrik-scan. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrik::scan_tool {

/** Runs the command that the arguments, the program's name first, ask for. Returns the program's exit code. */
int RunCommandLine(std::vector<std::string> arguments);

/** A number of bytes such as "4096", "64K", "10M", "2G"; nothing when the text is none. */
std::optional<uint64_t> ParseSize(const std::string &text);

} // namespace tavrik::scan_tool

#endif
