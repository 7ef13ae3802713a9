// tavrik-scan: finds what the module's rules detect and the payloads that its locators know.

#include <exception>
#include <fmt/format.h>

#include "host/command_line.h"
#include "host/commands.h"
#include "host/console.h"
#include "host/system.h"

int main(int argc, char **argv) {
    using namespace tavrik::host;
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
