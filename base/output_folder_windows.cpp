// Links and mount points are checked for before each step, not atomically: who may create them may write to the folder
// anyway.
#include <windows.h>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <io.h>
#include <string_view>
#include <sys/utime.h>
#include <system_error>

#include "base/error.h"
#include "base/output_folder.h"
#include "base/system.h"
#include "base/text.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

bool IsPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\\:\0", 4)) == name.npos;
}

// Creates the components that are missing below `folder`. False, with errno set, when that fails or one is a link.
bool Descend(const fs::path &folder, OutputFolder::Components components) {
    if (!std::all_of(components.begin(), components.end(), IsPlainName)) {
        errno = EINVAL;
        return false;
    }
    fs::path path = folder;
    for (const std::string &name : components) {
        path /= base::PathOf(name);
        if (CreateDirectoryW(path.c_str(), nullptr) != 0)
            continue;
        const DWORD attributes = GetFileAttributesW(path.c_str());
        const DWORD kind = attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
        if (attributes == INVALID_FILE_ATTRIBUTES || kind != FILE_ATTRIBUTE_DIRECTORY) {
            errno = attributes == INVALID_FILE_ATTRIBUTES ? EACCES : ENOTDIR;
            return false;
        }
    }
    return true;
}

} // namespace

OutputFolder::OutputFolder(const fs::path &folder) : path_(folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder, error))
        throw Error(folder, "cannot be written to: it is not a folder; name another folder");
}

OutputFolder::~OutputFolder() = default;

fs::path OutputFolder::PathOf(Components components) const {
    fs::path path = path_;
    for (const std::string &name : components)
        path /= base::PathOf(name);
    return path;
}

std::FILE *OutputFolder::Create(Components components) {
    if (components.empty() || !IsPlainName(components.back())) {
        errno = EINVAL;
        return nullptr;
    }
    return Descend(path_, components.first(components.size() - 1)) ? CreateNewFile(PathOf(components)) : nullptr;
}

bool OutputFolder::MakeFolder(Components components) {
    return Descend(path_, components);
}

void OutputFolder::Remove(Components components) {
    std::error_code ignored;
    fs::remove(PathOf(components), ignored);
}

void SetFileTime(std::FILE *file, int64_t seconds) {
    __utimbuf64 times = {seconds, seconds};
    _futime64(_fileno(file), &times);
}

} // namespace tavrik::base
