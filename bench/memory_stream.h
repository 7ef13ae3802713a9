/* A host stream over memory that counts the calls. */
#ifndef TAVRIK_BENCH_MEMORY_STREAM_H
#define TAVRIK_BENCH_MEMORY_STREAM_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "tavrik2/file_stream.h"

namespace tavrik::bench {

struct MemoryStream {
    FileStream base = {&kOperations};
    std::span<const uint8_t> bytes;
    uint32_t position = 0;
    uint64_t calls = 0;

    static MemoryStream &Of(FileStream *stream) {
        auto *self = static_cast<MemoryStream *>(static_cast<void *>(stream));
        ++self->calls;
        return *self;
    }

    static uint32_t Seek(FileStream *stream, uint32_t, uint32_t offset, uint32_t) {
        return Of(stream).position = offset;
    }

    static uint32_t Read(FileStream *stream, uint32_t, void *buffer, uint32_t length) {
        MemoryStream &self = Of(stream);
        if (self.position >= self.bytes.size())
            return 0;
        const uint32_t count = std::min(length, static_cast<uint32_t>(self.bytes.size() - self.position));
        std::memcpy(buffer, self.bytes.data() + self.position, count);
        self.position += count;
        return count;
    }

    static uint32_t Tell(FileStream *stream, uint32_t) { return Of(stream).position; }

    static constexpr FileStreamOperations kOperations = {nullptr, nullptr, Seek, Read, nullptr, nullptr, nullptr, Tell};
};

} // namespace tavrik::bench

#endif
