/* The command line of tavrik-rules. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_COMMAND_LINE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_COMMAND_LINE_H

#include <string>
#include <vector>

#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

/** Runs the command that the arguments, the program's name first, ask for. Throws base::Error and base::ClosedPipe. */
int RunCommandLine(std::vector<std::string> arguments);

} // namespace tavrik::rules_tool

#endif
