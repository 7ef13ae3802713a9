/* What the caller gives to be read, and how long a call may go on reading it. */
#ifndef TAVRIK_ENGINE_INPUT_H
#define TAVRIK_ENGINE_INPUT_H

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "scanner/watched_source.h"
#include "tavrik/tavrik.h"

struct tavrik_cancel {
    std::atomic<bool> is_requested = false;
};

namespace tavrik::engine {

/** A file that is read through the caller's function, in pages: what is near to what was read before costs no call. */
class StreamSource final : public base::ByteSource {
public:
    explicit StreamSource(const tavrik_stream &stream) : stream_(stream) {}

    uint64_t size() const override { return stream_.length; }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    const std::string &error() const override { return error_; }
    uint64_t bytes_read() const override { return bytes_read_; }

private:
    static constexpr std::size_t kPageSize = 64 * 1024;
    static constexpr std::size_t kPages = 8;

    struct Page {
        uint64_t number = UINT64_MAX;
        uint64_t used = 0; // when it was used last, in reads
        std::vector<uint8_t> bytes;
    };

    const Page *PageAt(uint64_t number);
    std::size_t ReadFromCaller(uint64_t offset, void *buffer, std::size_t length);

    tavrik_stream stream_;
    std::array<Page, kPages> pages_;
    uint64_t reads_ = 0;
    uint64_t bytes_read_ = 0;
    std::string error_;
};

/** The input of one call: opened, and the time until which it may be read. */
class Input {
public:
    /** `input` has its full size. Throws Failure for an input that cannot be, base::Error when the file cannot be
     * opened. `timeout` in seconds, 0 for none; `cancel` may be null and must outlive the object. */
    Input(const tavrik_input &input, double timeout, const tavrik_cancel *cancel);

    /** What reports call it. */
    const std::filesystem::path &name() const { return name_; }

    /** The file itself, and how long it may be read. */
    base::ByteSource &source() { return *source_; }
    const scanner::Deadline &deadline() const { return deadline_; }

    /** The same, read until then: later reads fail. */
    base::ByteSource &watched() { return watched_; }

private:
    std::filesystem::path name_;
    std::unique_ptr<base::ByteSource> source_;
    scanner::Deadline deadline_;
    scanner::WatchedSource watched_;
};

} // namespace tavrik::engine

#endif
