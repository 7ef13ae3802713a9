// Dynamic libraries and the program's place on systems with ELF modules.
#include "host/system.h"

#include <stdexcept>

#include <dlfcn.h>

namespace tavrik::host {

namespace fs = std::filesystem;

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

void PrepareConsole() {}

} // namespace tavrik::host
