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
#include <sys/stat.h>
#include <system_error>

#include "base/error.h"
#include "base/module_path.h"
#include "base/system.h"
#include "base/utf8_locale.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUsualWidth = 80;
constexpr std::size_t kLongestRead = 1u << 30; // the system counts in 32 bits

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
    // UTF-8 has every character, and the system does not accept the flag with it.
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

std::error_code LastError() {
    return {static_cast<int>(GetLastError()), std::system_category()};
}

std::string LastErrorText() {
    const std::error_code error = LastError();
    return error.message() + " (error " + std::to_string(error.value()) + ")";
}

HANDLE Handle(intptr_t handle) {
    return std::bit_cast<HANDLE>(handle);
}

} // namespace

// The altered search path finds the library's dependencies in its own folder.
DynamicLibrary::DynamicLibrary(const fs::path &path)
    : handle_(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
    if (handle_ == nullptr)
        throw Error(LastErrorText());
}

DynamicLibrary::~DynamicLibrary() {
    FreeLibrary(static_cast<HMODULE>(handle_));
}

void *DynamicLibrary::Symbol(const char *name) const {
    return std::bit_cast<void *>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

namespace {

// The folder of a loaded module; null is the program.
fs::path FolderOf(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()))) == path.size())
        path.resize(path.size() * 2);
    path.resize(length);
    return fs::path(path).parent_path();
}

} // namespace

fs::path ProgramFolder() {
    return FolderOf(nullptr);
}

fs::path BinaryFolder() {
    static const wchar_t kInside = 0;
    HMODULE own = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, &kInside,
                       &own);
    return FolderOf(own);
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

std::size_t InputStream::Read(char *buffer, std::size_t length, const std::function<bool()> &give_up) {
    if (Interruption() != 0 || (give_up && give_up()))
        return 0;
    const int count = _read(descriptor_, buffer, static_cast<unsigned>(std::min<std::size_t>(length, INT_MAX)));
    if (count < 0)
        ThrowLastError();
    return Interruption() != 0 ? 0 : static_cast<std::size_t>(count);
}

// Other programs may go on reading, writing and deleting the file.
RegularFile::RegularFile(const std::filesystem::path &path, bool for_writing)
    : handle_(std::bit_cast<intptr_t>(
          CreateFileW(path.c_str(), for_writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr))) {
    if (Handle(handle_) == INVALID_HANDLE_VALUE)
        throw std::system_error(LastError());
    std::error_code error;
    LARGE_INTEGER size = {};
    if (GetFileType(Handle(handle_)) != FILE_TYPE_DISK)
        error = std::make_error_code(std::errc::not_supported);
    else if (GetFileSizeEx(Handle(handle_), &size) == 0)
        error = LastError();
    if (error) {
        CloseHandle(Handle(handle_));
        throw std::system_error(error);
    }
    size_ = static_cast<uint64_t>(size.QuadPart);
}

RegularFile::~RegularFile() {
    CloseHandle(Handle(handle_));
}

std::size_t RegularFile::ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error) {
    auto *to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(offset + done);
        place.OffsetHigh = static_cast<DWORD>((offset + done) >> 32);
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(length - done, kLongestRead));
        if (ReadFile(Handle(handle_), to + done, wanted, &count, &place) == 0 && GetLastError() != ERROR_HANDLE_EOF) {
            error = LastError();
            break;
        }
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

RegularFile RegularFile::Temporary() {
    wchar_t name[MAX_PATH + 1];
    if (GetTempFileNameW(fs::temp_directory_path().c_str(), L"tvk", 0, name) == 0)
        throw std::system_error(LastError());
    const HANDLE handle = CreateFileW(name, GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_DELETE, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        throw std::system_error(LastError());
    return RegularFile(std::bit_cast<intptr_t>(handle));
}

std::error_code RegularFile::Append(const void *bytes, std::size_t length) {
    const auto *from = static_cast<const uint8_t *>(bytes);
    while (length > 0) {
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(size_);
        place.OffsetHigh = static_cast<DWORD>(size_ >> 32);
        DWORD count = 0;
        if (WriteFile(Handle(handle_), from, static_cast<DWORD>(std::min(length, kLongestRead)), &count, &place) == 0)
            return LastError();
        from += count;
        length -= count;
        size_ += count;
    }
    return {};
}

std::FILE *CreateNewFile(const fs::path &path) {
    const int descriptor = _wopen(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    return descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
}

std::FILE *OpenForWriting(const fs::path &path) {
    const int descriptor = _wopen(path.c_str(), _O_WRONLY | _O_BINARY);
    return descriptor < 0 ? nullptr : _fdopen(descriptor, "wb");
}

// RenameOver keeps the access list of the file that it replaces.
bool CopyPermissions(const fs::path &, std::FILE *) {
    return true;
}

bool FlushToDisk(std::FILE *stream) {
    return _commit(_fileno(stream)) == 0;
}

std::error_code RenameOver(const fs::path &relative_from, const fs::path &relative_to) {
    // ReplaceFileW refuses names without a folder.
    std::error_code error;
    const fs::path from = fs::absolute(relative_from, error);
    const fs::path to = fs::absolute(relative_to, error);
    if (ReplaceFileW(to.c_str(), from.c_str(), nullptr, 0, nullptr, nullptr) != 0)
        return {};
    if (GetLastError() != ERROR_FILE_NOT_FOUND)
        return LastError();
    return MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0 ? std::error_code() : LastError();
}

Utf8Locale::Utf8Locale() : before_(nullptr) {}

Utf8Locale::~Utf8Locale() = default;

} // namespace tavrik::base
