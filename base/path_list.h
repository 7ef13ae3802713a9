/* Lists of paths from a file or from standard input. */
#ifndef TAVRIK_BASE_PATH_LIST_H
#define TAVRIK_BASE_PATH_LIST_H

#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "base/system.h"

namespace tavrik::base {

/** Reads the paths of a list one by one, while the list may still be growing. Serves one thread. */
class PathList {
public:
    /** Opens `list`, "-" being standard input, whose entries end with `separator` or the end of the list. Throws Error.
     */
    PathList(const std::filesystem::path &list, char separator);

    /** Waits for the next path that is not empty; nothing at the end and once Interruption is not 0. Throws Error when
     * the list cannot be read on. */
    std::optional<std::filesystem::path> Next();

private:
    std::size_t ReadPiece();
    std::optional<std::filesystem::path> TakeEntry();

    std::filesystem::path list_;
    char separator_;
    InputStream input_;
    std::array<char, 64 * 1024> buffer_;
    std::string_view piece_; // of the buffer: what has been read and not yet taken
    std::string entry_;      // the beginning of the next entry
};

} // namespace tavrik::base

#endif
