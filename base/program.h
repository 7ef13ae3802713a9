/* What the main functions of all programs share. */
#ifndef TAVRIK_BASE_PROGRAM_H
#define TAVRIK_BASE_PROGRAM_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI { // NOLINT(readability-identifier-naming): the library's
class App;
}

namespace tavrik::base {

/** The exit code of a program whose reader has closed the pipe: the same as if SIGPIPE had ended it. */
inline constexpr int kPipeClosedCode = 141;

/** Runs `body`, which returns the exit code, with standard output prepared. A closed pipe ends quietly with
 * kPipeClosedCode; other exceptions are reported in a line "PROGRAM: text", with the exit code `error_code`. */
int RunProgram(std::string_view program, int error_code, const std::function<int()> &body);

/** Parses the arguments, the program's name first. Help and version are printed on standard output, and a wrong command
 * line is described on standard error; then the exit code is returned, 0 or `error_code`, and nothing else is to be
 * done. Throws as base::Print. */
std::optional<int> ParseCommandLine(CLI::App &app, std::vector<std::string> arguments, int error_code);

} // namespace tavrik::base

#endif
