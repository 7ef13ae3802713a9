// The operating system on Linux and its like.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <string_view>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

#include "base/system.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUsualWidth = 80;

// How often a wait for input looks for a request to end.
constexpr int kPollMilliseconds = 100;

std::atomic<int> interruption = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler sets it");

[[noreturn]] void ThrowLastError() {
    throw std::system_error(errno, std::generic_category());
}

} // namespace

DynamicLibrary::DynamicLibrary(const fs::path &path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr)
        throw std::runtime_error(dlerror());
}

DynamicLibrary::~DynamicLibrary() {
    dlclose(handle_);
}

void *DynamicLibrary::Symbol(const char *name) const {
    return dlsym(handle_, name);
}

fs::path ProgramFolder() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

std::string SystemPath(const fs::path &path) {
    return path.string();
}

std::vector<std::string> Arguments(int argc, char **argv) {
    return {argv, argv + argc};
}

void PrepareConsole() {
    std::signal(SIGPIPE, SIG_IGN);
}

bool MeansClosedPipe(int error) {
    return error == EPIPE;
}

bool IsTerminal(std::FILE *stream) {
    return isatty(fileno(stream)) != 0;
}

bool EnableEscapes(std::FILE *stream) {
    const char *terminal = std::getenv("TERM");
    return IsTerminal(stream) && terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::size_t TerminalWidth() {
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

void NoteInterruptions() {
    struct sigaction action = {};
    action.sa_handler = [](int signal) { interruption = signal; };
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction before = {};
        // Who started the program may have set it free of a signal.
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

int Interruption() {
    return interruption.load(std::memory_order_relaxed);
}

InputStream::InputStream(const fs::path &path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
        ThrowLastError();
}

InputStream::~InputStream() {
    if (descriptor_ != STDIN_FILENO)
        close(descriptor_);
}

std::size_t InputStream::Read(char *buffer, std::size_t length) {
    while (Interruption() == 0) {
        pollfd input = {descriptor_, POLLIN, 0};
        const int ready = poll(&input, 1, kPollMilliseconds);
        if (ready == 0)
            continue;
        const ssize_t count = ready < 0 ? -1 : read(descriptor_, buffer, length);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR && errno != EAGAIN)
            ThrowLastError();
    }
    return 0;
}

std::FILE *CreateNewFile(const fs::path &path) {
    constexpr mode_t kReadWrite = 0666; // less what the user's mask takes away
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kReadWrite);
    return descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
}

} // namespace tavrik::base
