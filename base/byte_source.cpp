#include "base/byte_source.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "base/error.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr char kNotRegular[] = "is a device, pipe or socket; only regular files can be scanned";

constexpr char kNoSuchFile[] = "no such file; check the name, or whether it has gone";

Error OpenError(const fs::path &path, const std::error_code &error) {
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return {path, kNoSuchFile, ErrorCode::NotFound};
    if (error == std::errc::permission_denied)
        return {path, "permission denied; run as a user who may read it", ErrorCode::PermissionDenied};
    if (error == std::errc::too_many_symbolic_link_levels)
        return {path, "a loop of symbolic links", ErrorCode::LinkLoop};
    if (error == std::errc::not_supported)
        return {path, kNotRegular, ErrorCode::NotRegular};
    return {path, error.message()};
}

// Opening a device may have side effects, so the type is checked first.
void RequireRegularFile(const fs::path &path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    switch (status.type()) {
    case fs::file_type::regular:
        return;
    case fs::file_type::directory:
        throw Error(path, "is a folder; name a file", ErrorCode::IsFolder);
    case fs::file_type::none:
        throw OpenError(path, error);
    case fs::file_type::not_found:
        throw Error(path, kNoSuchFile, ErrorCode::NotFound);
    default:
        throw Error(path, kNotRegular, ErrorCode::NotRegular);
    }
}

RegularFile Open(const fs::path &path, bool for_writing) {
    RequireRegularFile(path);
    try {
        return RegularFile(path, for_writing);
    } catch (const std::system_error &error) {
        throw OpenError(path, error.code());
    }
}

} // namespace

FileSource::FileSource(const fs::path &path, Access access) : file_(Open(path, access == Access::ReadWrite)) {}

std::size_t FileSource::ReadFromFile(uint64_t offset, void *buffer, std::size_t length) {
    std::error_code error;
    const std::size_t count = file_.ReadAt(offset, buffer, length, error);
    bytes_read_ += count;
    if (!error)
        return count;
    error_ = "cannot be read at offset " + std::to_string(offset) + ": " + error.message();
    return 0;
}

std::size_t FileSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (length == 0 || offset >= size() || !error_.empty())
        return 0;
    length = static_cast<std::size_t>(std::min<uint64_t>(length, size() - offset));
    const auto start = static_cast<std::size_t>(offset % kPageSize);
    if (length > kPageSize - start)
        return ReadFromFile(offset, buffer, length);
    if (page_length_ == 0 || page_offset_ != offset - start) {
        if (page_ == nullptr)
            page_.reset(new uint8_t[kPageSize]);
        page_offset_ = offset - start;
        const auto left = static_cast<std::size_t>(std::min<uint64_t>(kPageSize, size() - page_offset_));
        page_length_ = ReadFromFile(page_offset_, page_.get(), left);
    }
    if (start >= page_length_)
        return 0;
    length = std::min(length, page_length_ - start);
    std::memcpy(buffer, page_.get() + start, length);
    return length;
}

FileSource FileSource::Temporary() {
    try {
        return FileSource(TemporaryTag());
    } catch (const std::system_error &error) {
        throw Error(std::string("a temporary file cannot be made: ") + error.code().message() +
                    "; check the folder for temporary files");
    }
}

void FileSource::Append(std::span<const uint8_t> bytes) {
    page_length_ = 0;
    if (const std::error_code error = file_.Append(bytes.data(), bytes.size()))
        throw Error("a temporary file cannot be written: " + error.message() +
                    "; make room in the folder for temporary files");
}

WindowSource::WindowSource(ByteSource &source, uint64_t offset, uint64_t length)
    : source_(source), offset_(std::min(offset, source.size())), size_(std::min(length, source.size() - offset_)) {}

std::size_t WindowSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (offset >= size_)
        return 0;
    return source_.ReadAt(offset_ + offset, buffer,
                          static_cast<std::size_t>(std::min<uint64_t>(length, size_ - offset)));
}

std::span<const uint8_t> WindowSource::InMemory() const {
    const std::span<const uint8_t> all = source_.InMemory();
    return all.empty() ? all : all.subspan(static_cast<std::size_t>(offset_), static_cast<std::size_t>(size_));
}

std::size_t MemorySource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (length == 0 || offset >= bytes_.size())
        return 0;
    const std::size_t count = std::min<std::size_t>(length, bytes_.size() - static_cast<std::size_t>(offset));
    std::memcpy(buffer, bytes_.data() + offset, count);
    return count;
}

} // namespace tavrik::base
