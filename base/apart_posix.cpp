#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/apart.h"

namespace tavrik::base {

namespace {

[[noreturn]] void WorkAndEnd(const std::function<void()> &work, unsigned seconds) {
    const rlimit no_dump = {};
    setrlimit(RLIMIT_CORE, &no_dump);
    std::signal(SIGALRM, SIG_DFL);
    alarm(seconds);
    try {
        work();
    } catch (...) {
        _exit(EXIT_SUCCESS); // the work came to an end of its own
    }
    _exit(EXIT_SUCCESS); // nothing of the process that it is a copy of is closed or written
}

} // namespace

std::optional<std::string> TryApart(const std::function<void()> &work, unsigned seconds) {
    const pid_t child = fork();
    if (child < 0)
        return std::nullopt;
    if (child == 0)
        WorkAndEnd(work, seconds);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    if (!WIFSIGNALED(status))
        return WEXITSTATUS(status) == EXIT_SUCCESS ? "" : "exit code " + std::to_string(WEXITSTATUS(status));
    const int number = WTERMSIG(status);
    if (number == SIGALRM)
        return "more than " + std::to_string(seconds) + " seconds";
    return "signal " + std::to_string(number) + ", " + strsignal(number);
}

} // namespace tavrik::base
