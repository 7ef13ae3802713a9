/* Bytes in memory that are handed out as a file hands them out. */
#ifndef TAVRIK_FUZZ_STREAMED_SOURCE_H
#define TAVRIK_FUZZ_STREAMED_SOURCE_H

#include <span>

#include "base/byte_source.h"

namespace tavrik::fuzz {

/** A source that does not tell that its bytes are in memory. */
class StreamedSource final : public base::ByteSource {
public:
    explicit StreamedSource(std::span<const uint8_t> bytes) : memory_(bytes) {}

    uint64_t size() const override { return memory_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        return memory_.ReadAt(offset, buffer, length);
    }
    const std::string &error() const override { return memory_.error(); }

private:
    base::MemorySource memory_;
};

} // namespace tavrik::fuzz

#endif
