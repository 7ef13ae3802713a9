#include "host/byte_source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

std::string Advice(const std::error_code &error) {
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return "no such file; check the name";
    if (error == std::errc::permission_denied)
        return "permission denied; run as a user who may read it";
    if (error == std::errc::too_many_symbolic_link_levels)
        return "a loop of symbolic links";
    return error.message();
}

// Opening a pipe would wait for its writer and a device may do anything, so the kind is looked at first.
void RequireRegularFile(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    switch (status.type()) {
    case fs::file_type::regular:
        return;
    case fs::file_type::directory:
        throw OpenError("is a folder; name a file");
    case fs::file_type::none:
        throw OpenError(Advice(error));
    case fs::file_type::not_found:
        throw OpenError("no such file; check the name");
    default:
        throw OpenError("is a device, pipe or socket; only regular files can be scanned");
    }
}

} // namespace

FileSource::FileSource(const fs::path &path, Access access) {
    RequireRegularFile(path);
    std::error_code error;
    size_ = fs::file_size(path, error);
    if (error)
        throw OpenError(Advice(error));
    const auto read_only = std::ios::in | std::ios::binary;
    errno = 0;
    if (file_.open(path, access == Access::ReadWrite ? read_only | std::ios::out : read_only) == nullptr)
        throw OpenError(errno == 0 ? "cannot be opened" : Advice({errno, std::generic_category()}));
}

std::size_t FileSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (length == 0 || offset >= size_ || !error_.empty())
        return 0;
    const auto wanted = static_cast<std::streamsize>(std::min<uint64_t>(length, size_ - offset));
    try {
        if (file_.pubseekpos(static_cast<std::streamoff>(offset)) == std::streampos(std::streamoff(-1))) {
            error_ = "cannot be read at offset " + std::to_string(offset);
            return 0;
        }
        return static_cast<std::size_t>(file_.sgetn(static_cast<char *>(buffer), wanted));
    } catch (const std::ios_base::failure &failure) {
        error_ = "cannot be read at offset " + std::to_string(offset) + ": " + failure.code().message();
        return 0;
    }
}

std::size_t MemorySource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (length == 0 || offset >= bytes_.size())
        return 0;
    const std::size_t count = std::min<std::size_t>(length, bytes_.size() - static_cast<std::size_t>(offset));
    std::memcpy(buffer, bytes_.data() + offset, count);
    return count;
}

} // namespace tavrik::host
