// tavrik-scan: reports the detections of the module's rules and the payloads that its locators find.

#include <exception>

#include <fmt/format.h>

#include "base/console.h"
#include "base/system.h"
#include "tools/tavrik-scan/command_line.h"
#include "tools/tavrik-scan/commands.h"

int main(int argc, char **argv) {
    using namespace tavrik::base;
    using namespace tavrik::scan_tool;
    PrepareConsole();
    int code = kErrorHappened;
    try {
        code = RunCommandLine(Arguments(argc, argv));
        Print(""); // what is still buffered
    } catch (const ClosedPipe &) {
        return kOutputClosed;
    } catch (const std::exception &error) {
        PrintError(fmt::format("tavrik-scan: {}\n", error.what()));
    }
    return code;
}
