/* Walks over folders: from the paths that a user names to the files in and below them. */
#ifndef TAVRIK_BASE_WALK_H
#define TAVRIK_BASE_WALK_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/error.h"

namespace tavrik::base {

/** What a walk visits and what it leaves out. */
struct WalkSettings {
    bool recursive = false;

    /** Patterns of files and folders that are left out (see glob.h). One without "/" is matched with the name, one with
     * it with the whole path, "/" being the separator on every system. */
    std::vector<std::string> exclude;
};

/** The callbacks of a walk, called in its order. */
struct WalkVisitor {
    /** Both return whether to go on. */
    std::function<bool(const std::filesystem::path &file)> file;
    std::function<bool(const std::filesystem::path &path, const Error &error)> error;
};

/** Visits `path` itself or, when it is a folder and `recursive`, the regular files in and below it, in the order of
 * their names. Inside folders symbolic links, devices, pipes and sockets are left out; a path named by the user is
 * visited whatever its type. A folder that cannot be read is an error, and so is a folder without `recursive`; the walk
 * goes on. Memory holds the names in the folders on the way down. Returns false when the visitor ended the walk. */
bool Walk(const std::filesystem::path &path, const WalkSettings &settings, const WalkVisitor &visitor);

} // namespace tavrik::base

#endif
