// tavrik-rules: checks, compiles, formats, shows and tries heuristic rules.

#include <exception>

#include <fmt/format.h>

#include "base/console.h"
#include "base/system.h"
#include "tools/tavrik-rules/command_line.h"

int main(int argc, char **argv) {
    using namespace tavrik::base;
    using namespace tavrik::rules_tool;
    PrepareConsole();
    try {
        return RunCommandLine(Arguments(argc, argv));
    } catch (const ClosedPipe &) {
        return kOutputClosed;
    } catch (const std::exception &error) {
        PrintError(fmt::format("tavrik-rules: {}\n", error.what()));
        return kFailed;
    }
}
