/* From the paths that a user names to the files that are scanned. */
#ifndef TAVRIK_BASE_WALK_H
#define TAVRIK_BASE_WALK_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tavrik::base {

/** What a walk passes over and how far it goes. */
struct WalkSettings {
    bool recursive = false;

    /** Patterns of files and folders that are passed over (see glob.h). One without "/" is held against the name, one
     * with it against the whole path, with "/" between the folders. */
    std::vector<std::string> exclude;
};

/** Who is told of what a walk meets, in its order. */
struct WalkVisitor {
    /** Both return whether to go on. */
    std::function<bool(const std::filesystem::path &file)> file;
    std::function<bool(const std::filesystem::path &folder, const std::string &reason)> error;
};

/** Visits `path` itself or, when it is a folder and `recursive`, the regular files in and below it, by name. Inside
 * folders symbolic links, devices, pipes and sockets are passed over; a path named by the user is visited whatever it
 * is. Folders that cannot be read are errors, and so is a folder without `recursive`; the walk goes on. Holds the names
 * in the folders on the way down. Returns false when the visitor ended the walk. */
bool Walk(const std::filesystem::path &path, const WalkSettings &settings, const WalkVisitor &visitor);

} // namespace tavrik::base

#endif
