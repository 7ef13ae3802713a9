// Dynamic libraries, the program's place, its arguments and its console on Windows.
#include "host/system.h"

#include <bit>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

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

} // namespace tavrik::host
