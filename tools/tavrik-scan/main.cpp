// tavrik-scan: reports the detections of the module's rules and the payloads that its locators find.

#include "base/program.h"
#include "base/system.h"
#include "tools/tavrik-scan/command_line.h"
#include "tools/tavrik-scan/commands.h"

int main(int argc, char **argv) {
    using namespace tavrik;
    return base::RunProgram("tavrik-scan", scan_tool::kErrorHappened,
                            [&] { return scan_tool::RunCommandLine(base::Arguments(argc, argv)); });
}
