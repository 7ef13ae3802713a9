// tavrik-rules: checks, compiles, formats, shows and tries heuristic rules.

#include "base/program.h"
#include "base/system.h"
#include "tools/tavrik-rules/command_line.h"

int main(int argc, char **argv) {
    using namespace tavrik;
    return base::RunProgram("tavrik-rules", rules_tool::kFailed,
                            [&] { return rules_tool::RunCommandLine(base::Arguments(argc, argv)); });
}
