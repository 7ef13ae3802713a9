/* The stream object through which the module reads a file. */
#ifndef TAVRIK_SCANNER_MODULE_STREAM_H
#define TAVRIK_SCANNER_MODULE_STREAM_H

#include <cstdint>
#include <limits>
#include <memory>

#include "base/byte_source.h"
#include "tavrik2/file_stream.h"

namespace tavrik::scanner {

/** The largest file that the module can work on, in bytes: it compares offsets with the size as signed 32-bit values.
 */
inline constexpr uint64_t kLargestFile = std::numeric_limits<int32_t>::max();

/** A FileStream of the module's C ABI that reads a ByteSource.
 *
 * Its position may be moved anywhere up to 2^32 - 1; a read at or beyond the end returns 0 bytes. Every stream has its
 * own position and serves one call at a time. Close and destruction forget the source. */
class ModuleStream {
public:
    /** A stream over `source`, which is open already and must outlive the stream. Throws std::length_error when the
     * source is larger than kLargestFile. */
    explicit ModuleStream(base::ByteSource &source);

    /** How a closed stream opens files for the module; Nothing means that it opens none and says that it has. */
    enum class OpenAs { TheModuleAsks, ReadOnly, Nothing };

    /** A closed stream; the module opens files with it. Its file names are `const std::filesystem::path *`. */
    explicit ModuleStream(OpenAs open_as) : open_as_(open_as) {}

    ModuleStream(const ModuleStream &) = delete;
    ModuleStream &operator=(const ModuleStream &) = delete;

    /** The object for the module, valid for the life of this one. */
    FileStream *stream() { return &object_.stream; }

    /** The handle of the open file, to be passed to the module with the stream. */
    static constexpr uint32_t handle() { return kHandle; }

private:
    static constexpr uint32_t kHandle = 1;

    // The module gets a pointer to the first member; Owner finds this object from it.
    struct Object {
        FileStream stream;
        ModuleStream *owner;
    };

    static ModuleStream &Owner(FileStream *stream);
    static uint32_t Open(FileStream *stream, const void *file_name, uint32_t mode, uint32_t zero);
    static uint32_t Seek(FileStream *stream, uint32_t handle, uint32_t offset, uint32_t origin);
    static uint32_t Read(FileStream *stream, uint32_t handle, void *buffer, uint32_t length);
    static uint32_t Close(FileStream *stream, uint32_t handle);
    static uint32_t Tell(FileStream *stream, uint32_t handle);

    static const FileStreamOperations kOperations;

    Object object_{{&kOperations}, this};
    std::unique_ptr<base::ByteSource> opened_; // by the module
    base::ByteSource *source_ = nullptr;
    uint32_t position_ = 0;
    OpenAs open_as_ = OpenAs::TheModuleAsks;
};

} // namespace tavrik::scanner

#endif
