/* From the paths that a user names to the files that are scanned. */
#ifndef TAVRIK_HOST_WALK_H
#define TAVRIK_HOST_WALK_H

#include <filesystem>
#include <functional>
#include <string>

namespace tavrik::host {

/** Who is told of what a walk meets, in its order. */
struct WalkVisitor {
    std::function<void(const std::filesystem::path &file)> file;
    std::function<void(const std::filesystem::path &folder, const std::string &reason)> error;
};

/** Visits `path` itself or, when it is a folder and `recursive`, the regular files in and below it, by name. Inside
 * folders symbolic links, devices, pipes and sockets are passed over; a path named by the user is visited whatever it
 * is. Folders that cannot be read are errors, and so is a folder without `recursive`; the walk goes on. */
void Walk(const std::filesystem::path &path, bool recursive, const WalkVisitor &visitor);

} // namespace tavrik::host

#endif
