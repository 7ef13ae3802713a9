/* The command line of tavrik-corpus. */
#ifndef TAVRIK_TOOLS_TAVRIK_CORPUS_COMMAND_LINE_H
#define TAVRIK_TOOLS_TAVRIK_CORPUS_COMMAND_LINE_H

#include <string>
#include <vector>

namespace tavrik::corpus_tool {

/** Runs the command that the arguments, the program's name first, ask for. Throws base::Error and base::ClosedPipe. */
int RunCommandLine(std::vector<std::string> arguments);

} // namespace tavrik::corpus_tool

#endif
