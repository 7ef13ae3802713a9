// The operating system on Linux and other POSIX systems.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <locale.h>
#include <poll.h>
#include <string_view>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/error.h"
#include "base/module_path.h"
#include "base/system.h"
#include "base/utf8_locale.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUsualWidth = 80;

// How often a wait for input checks for a request to end.
constexpr int kPollMilliseconds = 100;

std::atomic<int> interruption = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler sets it");

[[noreturn]] void ThrowLastError() {
    throw std::system_error(errno, std::generic_category());
}

int Descriptor(intptr_t handle) {
    return static_cast<int>(handle);
}

} // namespace

DynamicLibrary::DynamicLibrary(const fs::path &path) : handle_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (handle_ == nullptr)
        throw Error(dlerror());
}

DynamicLibrary::~DynamicLibrary() {
    dlclose(handle_);
}

void *DynamicLibrary::Symbol(const char *name) const {
    return dlsym(handle_, name);
}

fs::path ProgramFolder() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (!error)
        return program.parent_path();
    // Without /proc, as in a fresh root: the path that the program was started by.
    return fs::canonical(reinterpret_cast<const char *>(getauxval(AT_EXECFN))).parent_path();
}

fs::path BinaryFolder() {
    // The loader knows a program by the name that it was started with, which is not always a path.
    Dl_info own = {};
    Dl_info program = {};
    static const char kInside = 0;
    const bool known = dladdr(&kInside, &own) != 0 && own.dli_fname != nullptr;
    const auto headers = reinterpret_cast<const void *>(getauxval(AT_PHDR));
    if (!known || (dladdr(headers, &program) != 0 && program.dli_fbase == own.dli_fbase))
        return ProgramFolder();
    std::error_code error;
    const fs::path path = fs::canonical(own.dli_fname, error);
    return error ? ProgramFolder() : path.parent_path();
}

std::string SystemPath(const fs::path &path) {
    return path.string();
}

std::vector<std::string> Arguments(int argc, char **argv) {
    return {argv, argv + argc};
}

void PrepareConsole() {
    std::signal(SIGPIPE, SIG_IGN);
    // A stream that the parent process has closed stays closed: its number would be the next file's.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) < 0)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
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
        // The parent process may have made the program ignore a signal, as nohup does.
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            sigaction(signal, &action, nullptr);
    }
}

int Interruption() {
    return interruption.load(std::memory_order_relaxed);
}

InputStream::InputStream(const fs::path &path) : descriptor_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    if (descriptor_ < 0)
        ThrowLastError();
}

InputStream::~InputStream() {
    if (descriptor_ != STDIN_FILENO)
        close(descriptor_);
}

std::size_t InputStream::Read(char *buffer, std::size_t length, const std::function<bool()> &give_up) {
    while (Interruption() == 0 && !(give_up && give_up())) {
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

// If a pipe has replaced the file since its type was checked, opening it does not wait for the other end.
RegularFile::RegularFile(const std::filesystem::path &path, bool for_writing)
    : handle_(open(path.c_str(), (for_writing ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (handle_ < 0)
        ThrowLastError();
    struct stat status = {};
    int error = fstat(Descriptor(handle_), &status) == 0 ? 0 : errno;
    if (error == 0 && !S_ISREG(status.st_mode))
        error = ENOTSUP;
    if (error != 0) {
        close(Descriptor(handle_));
        throw std::system_error(error, std::generic_category());
    }
    size_ = static_cast<uint64_t>(status.st_size);
}

RegularFile::~RegularFile() {
    close(Descriptor(handle_));
}

std::size_t RegularFile::ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error) {
    auto *to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = pread(Descriptor(handle_), to + done, length - done, static_cast<off_t>(offset + done));
        if (count > 0)
            done += static_cast<std::size_t>(count);
        else if (count == 0)
            break;
        else if (errno != EINTR) {
            error.assign(errno, std::generic_category());
            break;
        }
    }
    return done;
}

// The name exists for a moment only, and only this user may open it.
RegularFile RegularFile::Temporary() {
    std::string name = (fs::temp_directory_path() / "tavrik-XXXXXX").string();
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0)
        ThrowLastError();
    unlink(name.c_str());
    return RegularFile(intptr_t{descriptor});
}

std::error_code RegularFile::Append(const void *bytes, std::size_t length) {
    const auto *from = static_cast<const uint8_t *>(bytes);
    while (length > 0) {
        const ssize_t count = pwrite(Descriptor(handle_), from, length, static_cast<off_t>(size_));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {errno, std::generic_category()};
        from += count;
        length -= static_cast<std::size_t>(count);
        size_ += static_cast<uint64_t>(count);
    }
    return {};
}

std::FILE *CreateNewFile(const fs::path &path) {
    constexpr mode_t kReadWrite = 0666; // less what the user's mask takes away
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kReadWrite);
    return descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
}

std::FILE *OpenForWriting(const fs::path &path) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    return descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
}

bool CopyPermissions(const fs::path &from, std::FILE *to) {
    constexpr mode_t kPermissions = 07777;
    struct stat status = {};
    if (stat(from.c_str(), &status) != 0)
        return false;
    // The owner first: giving a file away takes its set-user-ID bit. Only the superuser may.
    const bool is_given = fchown(fileno(to), status.st_uid, status.st_gid) == 0;
    const mode_t mode = status.st_mode & (is_given ? kPermissions : 0777);
    return fchmod(fileno(to), mode) == 0;
}

bool FlushToDisk(std::FILE *stream) {
    // Some file systems know no such thing.
    return fsync(fileno(stream)) == 0 || errno == EINVAL || errno == ENOTSUP;
}

std::error_code RenameOver(const fs::path &from, const fs::path &to) {
    std::error_code error;
    fs::rename(from, to, error);
    return error;
}

Utf8Locale::Utf8Locale() {
    // Made once and kept: making it reads files.
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
    before_ = utf8 == locale_t{} ? nullptr : uselocale(utf8);
}

Utf8Locale::~Utf8Locale() {
    if (before_ != nullptr)
        uselocale(static_cast<locale_t>(before_));
}

} // namespace tavrik::base
