/* PE files that nobody here made: those of the Debian packages that ./run installs. */
#ifndef TAVRIK_TESTS_SUPPORT_PACKAGED_FILES_H
#define TAVRIK_TESTS_SUPPORT_PACKAGED_FILES_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

namespace tavrik::tests {

/** The folders that they are in. */
inline constexpr const char *kPackagedFolders[] = {"/usr/lib/x86_64-linux-gnu/wine/x86_64-windows", "/usr/share/nsis",
                                                   "/usr/x86_64-w64-mingw32/lib", "/usr/lib/gcc/x86_64-w64-mingw32"};

/** The files that begin with a DOS header, in the order of their names. */
inline std::vector<std::filesystem::path> PackagedFiles() {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (const char *folder : kPackagedFolders) {
        std::error_code missing;
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder, missing)) {
            char magic[2] = {};
            if (entry.is_regular_file() && std::ifstream(entry.path(), std::ios::binary).read(magic, sizeof(magic)) &&
                magic[0] == 'M' && magic[1] == 'Z')
                files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace tavrik::tests

#endif
