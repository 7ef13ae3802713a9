/* Where the built modules stand, and a folder of a test's own. */
#ifndef TAVRIK_TESTS_SUPPORT_MODULE_FOLDER_H
#define TAVRIK_TESTS_SUPPORT_MODULE_FOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tavrik2/lifecycle/platform.h"

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

/** The bytes of a file, line ends as they are; "" when there is none. */
inline std::string ReadFile(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** An empty folder that is the current one while this lives. */
class FreshFolder {
public:
    FreshFolder() : before_(std::filesystem::current_path()) {
        for (int number = 0;
             !std::filesystem::create_directory(folder_ = before_ / ("test-" + std::to_string(number)));)
            ++number;
        std::filesystem::current_path(folder_);
    }
    ~FreshFolder() {
        std::filesystem::current_path(before_);
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    FreshFolder(const FreshFolder &) = delete;
    FreshFolder &operator=(const FreshFolder &) = delete;

private:
    std::filesystem::path before_;
    std::filesystem::path folder_;
};

} // namespace tavrik::tests

#endif
