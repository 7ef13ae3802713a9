/* Opening what is to be scanned. */
#ifndef TAVRIK_SCANNER_OPEN_INPUT_H
#define TAVRIK_SCANNER_OPEN_INPUT_H

#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/stream_source.h"
#include "scanner/watched_source.h"

namespace tavrik::scanner {

/** A file to scan, or a stream that is read to its end first. */
struct Input {
    enum class Kind { File, Pipe, StandardInput };

    std::filesystem::path path; // "-" for standard input
    Kind kind = Kind::File;
};

/** No more bytes of a stream are taken; a temporary file holds them. */
inline constexpr uint64_t kLargestStream = uint64_t{4} << 30;

/** Reads a stream to its end, until the deadline or until there are more than `most` bytes. Throws base::Error. */
std::shared_ptr<base::StreamSource> ReadStream(const Input &input, uint64_t most, const Deadline &deadline);

/** Opens a file, or reads a stream of at most kLargestStream bytes. Throws base::Error. */
std::shared_ptr<base::ByteSource> OpenInput(const Input &input, const Deadline &deadline);

} // namespace tavrik::scanner

#endif
