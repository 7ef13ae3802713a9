// The services of Linux and its C library: ELF modules, files, mutexes.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/system.h"
#include "tavrik2/lifecycle/platform.h"

namespace tavrik::platform {

UtcTime GetUtcTime() {
    timespec now = {};
    tm utc = {};
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &utc);
    return {static_cast<unsigned>(utc.tm_year + 1900),   static_cast<unsigned>(utc.tm_mon + 1),
            static_cast<unsigned>(utc.tm_mday),          static_cast<unsigned>(utc.tm_hour),
            static_cast<unsigned>(utc.tm_min),           static_cast<unsigned>(utc.tm_sec),
            static_cast<unsigned>(now.tv_nsec / 1000000)};
}

namespace {

// Log paths are written for Windows. One that starts with a drive, such as "c:\yndebug.log", means the file of that
// base name in the current folder here; every other path is used as it is.
const char *MapLogPath(const char *path) {
    const auto drive = static_cast<unsigned char>(path[0] | 0x20);
    if (drive < 'a' || drive > 'z' || path[1] != ':')
        return path;
    const char *base_name = path + 2;
    for (const char *c = base_name; *c != '\0'; ++c)
        if (*c == '\\' || *c == '/')
            base_name = c + 1;
    return base_name;
}

} // namespace

// The current folder may belong to someone else, and hold a link or a pipe of the log's name: a link is not followed,
// and a pipe without a reader is not waited for.
void AppendToLog(const char *path, const char *bytes, size_t size) {
    const int file =
        open(MapLogPath(path), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY,
             S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
    if (file < 0)
        return;
    while (write(file, bytes, size) < 0 && errno == EINTR)
        continue;
    close(file);
}

} // namespace tavrik::platform

namespace {

struct ModuleSearch {
    const char *file_name;
    char path[PATH_MAX]; // as the dynamic linker knows the module; "" until found
};

int VisitModule(dl_phdr_info *info, size_t, void *argument) {
    auto *search = static_cast<ModuleSearch *>(argument);
    const char *slash = strrchr(info->dlpi_name, '/');
    if (slash == nullptr || strcmp(slash + 1, search->file_name) != 0)
        return 0;
    PlatformCopyString(search->path, sizeof search->path, info->dlpi_name);
    return search->path[0] != '\0';
}

// Whether the file at `path` is a loaded module. The dynamic linker reports paths as they were given, relative ones
// too, but it also recognises a loaded file by its device and inode.
bool IsLoadedFrom(const char *path) {
    char absolute[PATH_MAX];
    if (realpath(path, absolute) == nullptr)
        return false;
    void *module = dlopen(absolute, RTLD_LAZY | RTLD_NOLOAD);
    if (module != nullptr)
        dlclose(module);
    return module != nullptr;
}

} // namespace

// The first loaded module of that name counts. One that was loaded by a relative path is found as long as that path
// still leads to it.
TAVRIK_API uint32_t PlatformGetModuleDirectory(const char *file_name, char *directory, uint32_t capacity) {
    if (directory == nullptr || capacity == 0)
        return 0;
    directory[0] = '\0';
    ModuleSearch search = {file_name, ""};
    if (file_name == nullptr || dl_iterate_phdr(VisitModule, &search) == 0)
        return 0;
    if (search.path[0] != '/' && !IsLoadedFrom(search.path))
        return 0;
    strrchr(search.path, '/')[1] = '\0';
    char absolute[PATH_MAX];
    if (realpath(search.path, absolute) != nullptr)
        PlatformCopyString(directory, capacity, absolute);
    return directory[0] != '\0';
}

// A bare file name is refused: it would be searched for along the library path.
TAVRIK_API void *PlatformLoadModule(const char *path) {
    if (path == nullptr || strchr(path, '/') == nullptr)
        return nullptr;
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

TAVRIK_API void PlatformFreeModule(void *module) {
    if (module != nullptr)
        dlclose(module);
}

// dlsym also finds what the module's dependencies export; only the module's own symbols count.
TAVRIK_API void *PlatformGetSymbol(void *module, const char *name) {
    if (module == nullptr || name == nullptr)
        return nullptr;
    void *address = dlsym(module, name);
    link_map *wanted = nullptr;
    void *owner = nullptr;
    Dl_info info = {};
    if (address == nullptr || dlinfo(module, RTLD_DI_LINKMAP, &wanted) != 0 ||
        dladdr1(address, &info, &owner, RTLD_DL_LINKMAP) == 0)
        return nullptr;
    return owner == wanted ? address : nullptr;
}

// The handle is a mutex, not held.
TAVRIK_API uint32_t PlatformCreateHandle(void **slot) {
    if (slot == nullptr)
        return 0;
    *slot = nullptr;
    auto *mutex = static_cast<pthread_mutex_t *>(malloc(sizeof(pthread_mutex_t)));
    if (mutex == nullptr)
        return 0;
    if (pthread_mutex_init(mutex, nullptr) != 0) {
        free(mutex);
        return 0;
    }
    *slot = mutex;
    return 1;
}

TAVRIK_API void PlatformReleaseHandle(void *handle) {
    if (handle == nullptr)
        return;
    pthread_mutex_destroy(static_cast<pthread_mutex_t *>(handle));
    free(handle);
}
