#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/regular_file.h"

namespace tavrik::base {

namespace {

int Descriptor(intptr_t handle) {
    return static_cast<int>(handle);
}

} // namespace

// Should a pipe have taken the file's place since somebody looked, opening it does not wait for its other end.
RegularFile::RegularFile(const std::filesystem::path &path, bool for_writing)
    : handle_(open(path.c_str(), (for_writing ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    if (handle_ < 0)
        throw std::system_error(errno, std::generic_category());
    struct stat status = {};
    int error = fstat(Descriptor(handle_), &status) == 0 ? 0 : errno;
    if (error == 0 && !S_ISREG(status.st_mode))
        error = ENOTSUP;
    if (error != 0) {
        close(Descriptor(handle_));
        throw std::system_error(error, std::generic_category());
    }
    size_ = static_cast<uint64_t>(status.st_size);
}

RegularFile::~RegularFile() {
    close(Descriptor(handle_));
}

std::size_t RegularFile::ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error) {
    auto *to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        const ssize_t count = pread(Descriptor(handle_), to + done, length - done, static_cast<off_t>(offset + done));
        if (count > 0)
            done += static_cast<std::size_t>(count);
        else if (count == 0)
            break;
        else if (errno != EINTR) {
            error.assign(errno, std::generic_category());
            break;
        }
    }
    return done;
}

} // namespace tavrik::base
