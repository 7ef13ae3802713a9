// The services of 64-bit Windows. Strings are in the active code page.
#include <cstring>

#include "platform/system.h"
#include "tavrik2/lifecycle/platform.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace tavrik::platform {

UtcTime GetUtcTime() {
    SYSTEMTIME now;
    GetSystemTime(&now);
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

// The right to append, without the right to write elsewhere, makes the system put each write at the file's end.
void AppendToLog(const char *path, const char *bytes, size_t size) {
    const HANDLE file = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    DWORD written = 0;
    WriteFile(file, bytes, static_cast<DWORD>(size), &written, nullptr);
    CloseHandle(file);
}

} // namespace tavrik::platform

using namespace tavrik::platform;

namespace {

// Bytes of the longest path that the system knows, with its NUL.
constexpr DWORD kPathCapacity = 32768;

// Keeps message boxes about missing or broken modules off the screen: the caller learns of them by the result.
class QuietErrors {
public:
    QuietErrors() { SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &previous_); }
    ~QuietErrors() { SetThreadErrorMode(previous_, nullptr); }
    QuietErrors(const QuietErrors &) = delete;
    QuietErrors &operator=(const QuietErrors &) = delete;

private:
    DWORD previous_ = 0;
};

} // namespace

TAVRIK_API uint32_t PlatformGetModuleDirectory(const char *file_name, char *directory, uint32_t capacity) {
    if (directory == nullptr || capacity == 0)
        return 0;
    directory[0] = '\0';
    // A null name would mean the program itself.
    const HMODULE module = file_name == nullptr ? nullptr : GetModuleHandleA(file_name);
    if (module == nullptr)
        return 0;
    char path[kPathCapacity];
    const DWORD length = GetModuleFileNameA(module, path, kPathCapacity);
    char *separator = length == 0 || length == kPathCapacity ? nullptr : strrchr(path, kSeparator);
    if (separator == nullptr)
        return 0;
    // "c:" is not the root of the drive; "c:\" is.
    const bool is_root = separator != path && separator[-1] == ':';
    separator[is_root ? 1 : 0] = '\0';
    PlatformCopyString(directory, capacity, path);
    return directory[0] != '\0';
}

// A bare file name is refused: it would be searched for along the library path. The module's own folder is searched for
// the modules that it needs, for which the system wants an absolute path.
TAVRIK_API void *PlatformLoadModule(const char *path) {
    if (path == nullptr || strpbrk(path, kSeparators) == nullptr)
        return nullptr;
    char absolute[kPathCapacity];
    const DWORD length = GetFullPathNameA(path, kPathCapacity, absolute, nullptr);
    if (length == 0 || length >= kPathCapacity)
        return nullptr;
    const QuietErrors quiet;
    return LoadLibraryExA(absolute, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

TAVRIK_API void PlatformFreeModule(void *module) {
    if (module != nullptr)
        FreeLibrary(static_cast<HMODULE>(module));
}

TAVRIK_API void *PlatformGetSymbol(void *module, const char *name) {
    if (module == nullptr || name == nullptr)
        return nullptr;
    return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(module), name));
}

// The handle is an unnamed mutex, not held.
TAVRIK_API uint32_t PlatformCreateHandle(void **slot) {
    if (slot == nullptr)
        return 0;
    *slot = CreateMutexA(nullptr, FALSE, nullptr);
    return *slot != nullptr;
}

TAVRIK_API void PlatformReleaseHandle(void *handle) {
    if (handle != nullptr)
        CloseHandle(handle);
}
