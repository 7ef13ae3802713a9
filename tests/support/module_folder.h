/* The folder of the built modules. */
#ifndef TAVRIK_TESTS_SUPPORT_MODULE_FOLDER_H
#define TAVRIK_TESTS_SUPPORT_MODULE_FOLDER_H

#include <filesystem>
#include <string>

#include "tavrik2/lifecycle/platform.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {

inline constexpr char kSeparator = static_cast<char>(std::filesystem::path::preferred_separator);

/** The folder of the modules: that of the platform module which this program is linked to. */
inline std::string ModuleFolder() {
    char directory[1024] = "";
    PlatformGetModuleDirectory("platform.hbx", directory, sizeof directory);
    return directory;
}

inline std::string ModulePath(const char *file_name) {
    char path[1024];
    PlatformCopyString(path, sizeof path, ModuleFolder().c_str());
    PlatformAppendPath(path, sizeof path, file_name);
    return path;
}

} // namespace tavrik::tests

#endif
