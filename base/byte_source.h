/* Sources of bytes: a file, memory, or a part of another source. */
#ifndef TAVRIK_BASE_BYTE_SOURCE_H
#define TAVRIK_BASE_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>

#include "base/error.h"
#include "base/system.h"

namespace tavrik::base {

/** Bytes that are read by their position. One source serves one thread at a time. */
class ByteSource {
public:
    virtual ~ByteSource() = default;

    /** The number of bytes, as it was when the source was opened. */
    virtual uint64_t size() const = 0;

    /** Reads up to `length` bytes from `offset` (from the start) into `buffer`. Returns how many were read: fewer at
     * the end, 0 beyond it and after a failure. */
    virtual std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) = 0;

    /** All the bytes, when they are in memory for the life of the source; otherwise nothing. */
    virtual std::span<const uint8_t> InMemory() const { return {}; }

    /** The reason of the first read that failed; "" while none has. */
    virtual const std::string &error() const = 0;

    /** The kind of that failure. */
    virtual ErrorCode error_code() const { return ErrorCode::ReadFailed; }

    /** How many bytes have come from where the source has them: of memory, which is not read, all; 0 where it is not
     * counted. */
    virtual uint64_t bytes_read() const { return 0; }
};

/** A regular file of any size. Small reads close to each other cost one system call. */
class FileSource final : public ByteSource {
public:
    enum class Access { Read, ReadWrite };

    /** Opens the file; throws Error when it is not a regular file or may not be opened. Never creates or changes it. */
    explicit FileSource(const std::filesystem::path &path, Access access = Access::Read);

    /** An empty temporary file without a name, for data too large for memory; removed with the object. Throws
     * Error. */
    static FileSource Temporary();

    /** Adds bytes at the end of a temporary file. Throws Error. */
    void Append(std::span<const uint8_t> bytes);

    uint64_t size() const override { return file_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    const std::string &error() const override { return error_; }

    /** How many bytes the system has been asked for and has given. */
    uint64_t bytes_read() const override { return bytes_read_; }

private:
    static constexpr std::size_t kPageSize = 16 * 1024;

    struct TemporaryTag {};
    explicit FileSource(TemporaryTag) : file_(RegularFile::Temporary()) {}

    std::size_t ReadFromFile(uint64_t offset, void *buffer, std::size_t length);

    RegularFile file_;
    std::unique_ptr<uint8_t[]> page_; // the page that was read last
    uint64_t page_offset_ = 0;        // in the file; a multiple of its size
    std::size_t page_length_ = 0;     // 0 while there is none
    uint64_t bytes_read_ = 0;
    std::string error_;
};

/** A block of memory, which must outlive the source. */
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    uint64_t size() const override { return bytes_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    std::span<const uint8_t> InMemory() const override { return bytes_; }
    const std::string &error() const override { return error_; }
    uint64_t bytes_read() const override { return bytes_.size(); }

private:
    std::span<const uint8_t> bytes_;
    std::string error_;
};

/** A part of another source, which must outlive it. */
class WindowSource final : public ByteSource {
public:
    /** The `length` bytes from `offset` on, as far as the source has them. */
    WindowSource(ByteSource &source, uint64_t offset, uint64_t length);

    uint64_t size() const override { return size_; }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    std::span<const uint8_t> InMemory() const override;
    const std::string &error() const override { return source_.error(); }
    ErrorCode error_code() const override { return source_.error_code(); }

private:
    ByteSource &source_;
    uint64_t offset_;
    uint64_t size_;
};

} // namespace tavrik::base

#endif
