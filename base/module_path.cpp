#include "base/module_path.h"

#include <system_error>

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr char kModuleFileName[] = "tavrik2.hbx";

// From the folders of installed programs and of installed libraries, as the build's folders for installation say.
constexpr const char *kInstalledFolders[] = {TAVRIK_MODULES_FROM_PROGRAMS, TAVRIK_MODULES_FROM_LIBRARIES};

} // namespace

fs::path DefaultModulePath() {
    const fs::path folder = BinaryFolder();
    fs::path beside = folder / kModuleFileName;
    std::error_code error;
    if (fs::exists(beside, error))
        return beside;
    for (const char *from : kInstalledFolders) {
        fs::path installed = (folder / from / kModuleFileName).lexically_normal();
        if (fs::exists(installed, error))
            return installed;
    }
    return beside;
}

} // namespace tavrik::base
