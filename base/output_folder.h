/* A folder that is filled with files whose names come from files that are not trusted. */
#ifndef TAVRIK_BASE_OUTPUT_FOLDER_H
#define TAVRIK_BASE_OUTPUT_FOLDER_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>

namespace tavrik::base {

/** Creates files and folders below one folder: never outside it, never through a symbolic link below it, and never
 * replacing what exists. One thread at a time. */
class OutputFolder {
public:
    /** The components of a path below the folder. */
    using Components = std::span<const std::string>;

    /** Opens the folder, which is made with those above it when there is none. A symbolic link to a folder is followed
     * once, here. Throws Error. */
    explicit OutputFolder(const std::filesystem::path &folder);
    ~OutputFolder();
    OutputFolder(const OutputFolder &) = delete;
    OutputFolder &operator=(const OutputFolder &) = delete;

    /** The folder as it was named. */
    const std::filesystem::path &path() const { return path_; }

    /** The path of such a file, for messages. */
    std::filesystem::path PathOf(Components components) const;

    /** Creates a new file for writing, and the folders on the way. Null, with errno set, when that fails: EEXIST when
     * there is something of that name, EINVAL when a component is not a plain name ("", "..", "a/b"), another number
     * when there is a file or a symbolic link on the way. The caller closes it. */
    std::FILE *Create(Components components);

    /** Makes a folder and those on the way, as far as they are missing. False, with errno set, when that fails. */
    bool MakeFolder(Components components);

    /** Removes a file that Create made. Failures are ignored. */
    void Remove(Components components);

private:
    std::filesystem::path path_;
    intptr_t handle_ = 0; // the system's
};

/** Sets the time of the last change of an open file that has been written to and flushed, in seconds since 1970 UTC.
 * Failures are ignored. */
void SetFileTime(std::FILE *file, int64_t seconds);

} // namespace tavrik::base

#endif
