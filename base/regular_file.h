/* A file of the operating system that is read by position. */
#ifndef TAVRIK_BASE_REGULAR_FILE_H
#define TAVRIK_BASE_REGULAR_FILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace tavrik::base {

/** An open regular file. */
class RegularFile {
public:
    /** Opens a file that exists, without waiting for anything and without changing it. Throws std::system_error; its
     * code is std::errc::not_supported when the path is no regular file (any more). */
    RegularFile(const std::filesystem::path &path, bool for_writing);
    ~RegularFile();
    RegularFile(const RegularFile &) = delete;
    RegularFile &operator=(const RegularFile &) = delete;

    /** In bytes, when the file was opened. */
    uint64_t size() const { return size_; }

    /** Reads up to `length` bytes at `offset`. Returns how many were read: fewer at the end and after an error, which
     * is then set. */
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error);

private:
    intptr_t handle_; // the system's
    uint64_t size_ = 0;
};

} // namespace tavrik::base

#endif
