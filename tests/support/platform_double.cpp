#include "tests/support/platform_double.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "tavrik2/lifecycle/platform.h"

namespace tavrik::tests {
namespace {

// Things that the module only hands around; their addresses are their identities.
char g_lock, g_handle, g_symbol;

template <typename... Arguments>
void Note(fmt::format_string<Arguments...> format, Arguments &&...arguments) {
    Platform().events.push_back(fmt::format(format, std::forward<Arguments>(arguments)...));
    if (Platform().watch)
        Platform().watch(Platform().events.back());
}

const char *IdentityOf(const void *thing) {
    return thing == &g_lock ? "lock" : thing == &g_handle ? "handle" : thing == nullptr ? "null" : "?";
}

} // namespace

std::vector<std::string> PlatformDouble::TakeEvents() {
    std::vector<std::string> taken;
    taken.swap(events);
    return taken;
}

PlatformDouble &Platform() {
    static PlatformDouble platform;
    return platform;
}

HostConfig MakeHostConfig(const char *decoder_directory) {
    static HostServices services = [] {
        UnusedService unused[sizeof(HostServices) / sizeof(UnusedService)];
        std::fill(std::begin(unused), std::end(unused), [] { Note("unused service"); });
        HostServices made;
        std::memcpy(&made, unused, sizeof made);
        made.Service114 = [] {
            Note("Service114");
            return uint32_t{0};
        };
        made.CreateLock = [](void **slot, uint8_t kind, uint32_t zero) {
            Note("CreateLock {} {}", kind, zero);
            if (!Platform().lock_fails)
                *slot = &g_lock;
            return uint32_t{Platform().lock_fails ? 0u : 9u};
        };
        made.DestroyLock = [](void *lock) { Note("DestroyLock {}", IdentityOf(lock)); };
        return made;
    }();
    HostConfig config;
    std::memset(&config, 0xAA, sizeof config);
    std::strcpy(config.decoder_directory, decoder_directory);
    config.services = &services;
    return config;
}

void *GetInterfaceDouble(uint32_t interface_number, uint32_t companion_number) {
    Note("Interface {} {}", interface_number, companion_number);
    return nullptr;
}

} // namespace tavrik::tests

using namespace tavrik::tests;

uint32_t PlatformGetModuleDirectory(const char *file_name, char *directory, uint32_t capacity) {
    Note("Directory {} {}", file_name, capacity);
    std::strcpy(directory, Platform().own_directory.c_str());
    return Platform().own_directory.empty() ? 0 : 1;
}

void *PlatformLoadModule(const char *path) {
    Note("Load {}", path);
    if (Platform().missing.contains(path))
        return nullptr;
    ++Platform().live_modules;
    return new std::string(path);
}

void PlatformFreeModule(void *module) {
    auto *path = static_cast<std::string *>(module);
    Note("Free {}", path == nullptr ? "null" : *path);
    Platform().live_modules -= path != nullptr;
    delete path;
}

void *PlatformGetSymbol(void *module, const char *name) {
    Note("Symbol {} of {}", name, *static_cast<std::string *>(module));
    return Platform().missing.contains(name) ? nullptr : &g_symbol;
}

void PlatformWriteLog(const char *path, const char *line) {
    Note("Log {}: {}", path, line);
}

uint32_t PlatformCreateHandle(void **slot) {
    Note("CreateHandle");
    *slot = &g_handle; // a failed call may leave anything there
    return Platform().handle_fails ? 0 : 1;
}

void PlatformReleaseHandle(void *handle) {
    Note("ReleaseHandle {}", IdentityOf(handle));
}

void PlatformAttach(void *first, const HostConfig *config, GetInterface get_interface, void *fourth) {
    Note("Attach {} {} {} {}", static_cast<const char *>(first), config->decoder_directory,
         get_interface == GetInterfaceDouble, static_cast<const char *>(fourth));
}

void *PlatformAlloc(uint32_t size, uint32_t zero_1, uint32_t zero_2) {
    Note("Alloc {} {} {}", size, zero_1, zero_2);
    if (Platform().alloc_fails)
        return nullptr;
    ++Platform().live_blocks;
    return std::memset(std::malloc(size), 0xAA, size);
}

void PlatformFree(void *block) {
    Note("FreeBlock");
    --Platform().live_blocks;
    std::free(block);
}

void PlatformCopyString(char *destination, uint32_t capacity, const char *source) {
    Note("Copy {}", capacity);
    std::strcpy(destination, source);
}

void PlatformAppendPath(char *destination, uint32_t capacity, const char *file_name) {
    Note("Append {} {}", capacity, file_name);
    std::strcat(std::strcat(destination, "/"), file_name);
}
