/* Lists of paths from a file or from standard input. */
#ifndef TAVRIK_BASE_PATH_LIST_H
#define TAVRIK_BASE_PATH_LIST_H

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

namespace tavrik::base {

/** A list cannot be read; the text names it, the reason and the remedy. */
class PathListError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Reads the paths of `list`, "-" being standard input, each ended by `separator` or the end; empty ones are passed
 * over. Hands each on as it comes. Returns false when `visit` returned false and so ended it. Throws PathListError. */
bool ReadPathList(const std::filesystem::path &list, char separator,
                  const std::function<bool(const std::filesystem::path &path)> &visit);

} // namespace tavrik::base

#endif
