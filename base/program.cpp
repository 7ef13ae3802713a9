#include "base/program.h"

#include <algorithm>
#include <exception>
#include <sstream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/console.h"
#include "base/system.h"

namespace tavrik::base {

int RunProgram(std::string_view program, int error_code, const std::function<int()> &body) {
    PrepareConsole();
    try {
        const int code = body();
        Print(""); // what is still buffered
        return code;
    } catch (const ClosedPipe &) {
        return kPipeClosedCode;
    } catch (const std::exception &error) {
        PrintError(fmt::format("{}: {}\n", program, error.what()));
        return error_code;
    }
}

std::optional<int> ParseCommandLine(CLI::App &app, std::vector<std::string> arguments, int error_code) {
    // The parser takes them last first, without the program's name.
    arguments.erase(arguments.begin());
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(std::move(arguments));
        return std::nullopt;
    } catch (const CLI::CallForVersion &version) {
        Print(version.what());
        return 0;
    } catch (const CLI::ParseError &error) {
        // The parser's own output streams would hide that nothing can be written.
        std::ostringstream out;
        std::ostringstream errors;
        const int code = app.exit(error, out, errors);
        Print(out.str());
        PrintError(errors.str());
        return code == 0 ? 0 : error_code;
    }
}

} // namespace tavrik::base
