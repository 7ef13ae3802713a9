/* Bytes that come once and in order, such as a pipe's, as a source that is read by position. */
#ifndef TAVRIK_BASE_STREAM_SOURCE_H
#define TAVRIK_BASE_STREAM_SOURCE_H

#include <functional>
#include <memory>
#include <vector>

#include "base/byte_source.h"

namespace tavrik::base {

/** Everything that a stream delivers: in memory, and when it is more than that holds, in a temporary file without a
 * name. */
class StreamSource final : public ByteSource {
public:
    static constexpr uint64_t kMostInMemory = 16 * 1024 * 1024; // bytes

    /** Reads the stream to its end, to an interruption, until `give_up` returns true, or until it has delivered more
     * than `most` bytes, which IsCut tells. A stream that cannot be read has an error(). Throws Error when a temporary
     * file cannot be made or written. */
    StreamSource(InputStream &stream, uint64_t most, const std::function<bool()> &give_up);

    uint64_t size() const override { return file_ ? file_->size() : memory_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    std::span<const uint8_t> InMemory() const override { return memory_; }
    const std::string &error() const override { return file_ && error_.empty() ? file_->error() : error_; }

    /** Whether the stream has more bytes than `most`; they were not read. */
    bool IsCut() const { return is_cut_; }

private:
    void Keep(std::span<const uint8_t> bytes);

    std::vector<uint8_t> memory_;      // empty once there is a file
    std::unique_ptr<FileSource> file_; // with everything
    std::string error_;
    bool is_cut_ = false;
};

} // namespace tavrik::base

#endif
