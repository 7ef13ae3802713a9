// Every component is opened relative to the folder before it, so that nobody can put a link on the way meanwhile.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "base/error.h"
#include "base/output_folder.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr mode_t kFileMode = 0666; // less what the user's mask takes away
constexpr mode_t kFolderMode = 0777;

bool IsPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos && name.find('\0') == name.npos;
}

// An open folder that is closed at the end of its life.
class Folder {
public:
    explicit Folder(int descriptor) : descriptor_(descriptor) {}
    ~Folder() {
        const int error = errno; // which the caller wants to know
        if (descriptor_ >= 0)
            close(descriptor_);
        errno = error;
    }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    int descriptor() const { return descriptor_; }

    void Enter(int descriptor) {
        close(descriptor_);
        descriptor_ = descriptor;
    }

private:
    int descriptor_;
};

// Moves `folder` down along the components and creates those that are missing. False, with errno set, when that fails.
bool Descend(Folder &folder, OutputFolder::Components components) {
    if (!std::all_of(components.begin(), components.end(), IsPlainName)) {
        errno = EINVAL;
        return false;
    }
    for (const std::string &name : components) {
        if (mkdirat(folder.descriptor(), name.c_str(), kFolderMode) != 0 && errno != EEXIST)
            return false;
        const int next = openat(folder.descriptor(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0)
            return false;
        folder.Enter(next);
    }
    return true;
}

int Duplicate(intptr_t handle) {
    return fcntl(static_cast<int>(handle), F_DUPFD_CLOEXEC, 0);
}

} // namespace

OutputFolder::OutputFolder(const fs::path &folder) : path_(folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!error)
        handle_ = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (!error && handle_ < 0)
        error.assign(errno, std::generic_category());
    if (error)
        throw Error(folder, fmt::format("cannot be written to: {}; name another folder", error.message()));
}

OutputFolder::~OutputFolder() {
    close(static_cast<int>(handle_));
}

fs::path OutputFolder::PathOf(Components components) const {
    fs::path path = path_;
    for (const std::string &name : components)
        path /= name;
    return path;
}

std::FILE *OutputFolder::Create(Components components) {
    if (components.empty() || !IsPlainName(components.back())) {
        errno = EINVAL;
        return nullptr;
    }
    Folder folder(Duplicate(handle_));
    if (!Descend(folder, components.first(components.size() - 1)))
        return nullptr;
    const int descriptor = openat(folder.descriptor(), components.back().c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode);
    return descriptor < 0 ? nullptr : fdopen(descriptor, "wb");
}

bool OutputFolder::MakeFolder(Components components) {
    Folder folder(Duplicate(handle_));
    return Descend(folder, components);
}

void OutputFolder::Remove(Components components) {
    Folder folder(Duplicate(handle_));
    if (!components.empty() && Descend(folder, components.first(components.size() - 1)))
        unlinkat(folder.descriptor(), components.back().c_str(), 0);
}

void SetFileTime(std::FILE *file, int64_t seconds) {
    const timespec time = {seconds, 0};
    const timespec times[] = {time, time};
    futimens(fileno(file), times);
}

} // namespace tavrik::base
