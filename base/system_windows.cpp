// The operating system on Windows.
#include <windows.h>
#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>

#include "base/system.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUsualWidth = 80;

std::atomic<int> interruption = 0;

// The system calls this on a thread of its own. What is not handled here ends the program.
BOOL WINAPI NoteInterruption(DWORD) {
    int none = 0;
    return interruption.compare_exchange_strong(none, SIGINT) ? TRUE : FALSE;
}

HANDLE ConsoleOf(std::FILE *stream) {
    return std::bit_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
}

[[noreturn]] void ThrowLastError() {
    throw std::system_error(errno, std::generic_category());
}

std::string Narrow(const wchar_t *text, UINT code_page, bool *lossy = nullptr) {
    BOOL replaced = FALSE;
    // UTF-8 has every character, and the system wants no such flag with it.
    BOOL *flag = code_page == CP_UTF8 ? nullptr : &replaced;
    const int length = WideCharToMultiByte(code_page, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (length <= 0)
        return {};
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(code_page, 0, text, -1, narrow.data(), length, nullptr, flag);
    narrow.pop_back(); // the NUL
    if (lossy != nullptr)
        *lossy = replaced != FALSE;
    return narrow;
}

std::string LastErrorText() {
    const auto error = static_cast<int>(GetLastError());
    return std::system_category().message(error) + " (error " + std::to_string(error) + ")";
}

} // namespace

// The altered search path lets the library's own folder supply what the library needs.
DynamicLibrary::DynamicLibrary(const fs::path &path)
    : handle_(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
    if (handle_ == nullptr)
        throw std::runtime_error(LastErrorText());
}

DynamicLibrary::~DynamicLibrary() {
    FreeLibrary(static_cast<HMODULE>(handle_));
}

void *DynamicLibrary::Symbol(const char *name) const {
    return std::bit_cast<void *>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

fs::path ProgramFolder() {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) == path.size())
        path.resize(path.size() * 2);
    path.resize(length);
    return fs::path(path).parent_path();
}

std::string SystemPath(const fs::path &path) {
    bool lossy = false;
    std::string narrow = Narrow(path.c_str(), CP_ACP, &lossy);
    return lossy ? std::string() : narrow;
}

std::vector<std::string> Arguments(int argc, char **argv) {
    int count = 0;
    wchar_t **wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr)
        return {argv, argv + argc};
    std::vector<std::string> arguments;
    for (int index = 0; index < count; ++index)
        arguments.push_back(Narrow(wide[index], CP_UTF8));
    LocalFree(wide);
    return arguments;
}

void PrepareConsole() {
    SetConsoleOutputCP(CP_UTF8);
    _setmode(_fileno(stdout), _O_BINARY);
}

// The C library knows only one of the system's two errors for it; the arguments of our writes are valid.
bool MeansClosedPipe(int error) {
    return error == EPIPE || error == EINVAL;
}

bool IsTerminal(std::FILE *stream) {
    DWORD mode = 0; // NUL is a character device too, but has no mode
    return GetConsoleMode(ConsoleOf(stream), &mode) != 0;
}

bool EnableEscapes(std::FILE *stream) {
    constexpr DWORD kProcessEscapes = 0x0004; // ENABLE_VIRTUAL_TERMINAL_PROCESSING, which older headers do not have
    DWORD mode = 0;
    const HANDLE console = ConsoleOf(stream);
    return GetConsoleMode(console, &mode) != 0 && SetConsoleMode(console, mode | kProcessEscapes) != 0;
}

std::size_t TerminalWidth() {
    CONSOLE_SCREEN_BUFFER_INFO info;
    if (GetConsoleScreenBufferInfo(ConsoleOf(stderr), &info) == 0)
        return kUsualWidth;
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
}

void NoteInterruptions() {
    SetConsoleCtrlHandler(NoteInterruption, TRUE);
}

int Interruption() {
    return interruption.load(std::memory_order_relaxed);
}

InputStream::InputStream(const fs::path &path) : descriptor_(_wopen(path.c_str(), _O_RDONLY | _O_BINARY)) {
    if (descriptor_ < 0)
        ThrowLastError();
}

InputStream::~InputStream() {
    if (descriptor_ != _fileno(stdin))
        _close(descriptor_);
}

std::size_t InputStream::Read(char *buffer, std::size_t length) {
    if (Interruption() != 0)
        return 0;
    const int count = _read(descriptor_, buffer, static_cast<unsigned>(std::min<std::size_t>(length, INT_MAX)));
    if (count < 0)
        ThrowLastError();
    return Interruption() != 0 ? 0 : static_cast<std::size_t>(count);
}

std::FILE *CreateNewFile(const fs::path &path) {
    const int descriptor = _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    return descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
}

} // namespace tavrik::base
