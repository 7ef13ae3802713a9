/* Reading through the host's stream: the few steps that every reader of the file shares. */
#ifndef TAVRIK2_PE_STREAM_IO_H
#define TAVRIK2_PE_STREAM_IO_H

#include <cstdint>
#include <cstring>

#include "tavrik2/file_stream.h"

namespace tavrik2 {

/** The stream's current position. */
inline uint32_t Tell(FileStream *stream, uint32_t handle) {
    return stream->operations->Tell(stream, handle);
}

/** Moves to `offset` from the start of the file; returns the position that the stream reports. */
inline uint32_t Seek(FileStream *stream, uint32_t handle, uint32_t offset) {
    return stream->operations->Seek(stream, handle, offset, SEEK_FROM_START);
}

/** Moves to `offset`; false when the stream reports another position. */
inline bool SeekExactly(FileStream *stream, uint32_t handle, uint32_t offset) {
    return Seek(stream, handle, offset) == offset;
}

/** Reads up to `length` bytes; returns the count that the stream reports, which a faulty stream may overstate. */
inline uint32_t Read(FileStream *stream, uint32_t handle, void *buffer, uint32_t length) {
    return stream->operations->Read(stream, handle, buffer, length);
}

/** Clears `buffer`, then reads up to its whole length; returns the count that the stream reports. */
template <uint32_t Length>
uint32_t ReadCleared(FileStream *stream, uint32_t handle, uint8_t (&buffer)[Length]) {
    std::memset(buffer, 0, Length);
    return Read(stream, handle, buffer, Length);
}

/** Moves to `offset` and fills the whole cleared `buffer`; false when the stream lands elsewhere or falls short. */
template <uint32_t Length>
bool ReadBlockAt(FileStream *stream, uint32_t handle, uint32_t offset, uint8_t (&buffer)[Length]) {
    return SeekExactly(stream, handle, offset) && ReadCleared(stream, handle, buffer) == Length;
}

} // namespace tavrik2

#endif
