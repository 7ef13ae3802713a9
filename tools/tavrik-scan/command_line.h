/* The command line of tavrik-scan. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_COMMAND_LINE_H

#include <string>
#include <vector>

namespace tavrik::scan_tool {

/** Runs the command that the arguments, the program's name first, specify. Returns the program's exit code. */
int RunCommandLine(std::vector<std::string> arguments);

} // namespace tavrik::scan_tool

#endif
