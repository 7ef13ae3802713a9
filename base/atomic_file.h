/* Writing whole files so that others see the old content or the new one, never a part. */
#ifndef TAVRIK_BASE_ATOMIC_FILE_H
#define TAVRIK_BASE_ATOMIC_FILE_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>

namespace tavrik::base {

/** Whether a file is on the disk before it replaces the old one. That takes milliseconds: files that are many and can
 * be made again do without it. */
enum class Flush { ToDisk, None };

/** Makes `content` the whole content of a file, through a temporary file of a unique name in the same folder that is
 * then renamed.
 *
 * A symbolic link stays a link; the file that it leads to is replaced, or made. A file that is replaced keeps its
 * permissions; a new one gets those of the user's mask. A device or pipe is written to as it is. After a failure the
 * old file is as it was, and the temporary file is gone. Other hard links to the file keep the old content. Throws
 * Error. */
void WriteWholeFile(const std::filesystem::path &path, std::string_view content, Flush flush = Flush::ToDisk);
void WriteWholeFile(const std::filesystem::path &path, std::span<const uint8_t> content, Flush flush = Flush::ToDisk);

/** The same for content that comes piece by piece: the file has it from Commit on. Serves one thread at a time. */
class AtomicFile {
public:
    /** Begins the temporary file. Throws Error when there can be none. */
    explicit AtomicFile(const std::filesystem::path &path);

    /** Without Commit the file stays as it was. */
    ~AtomicFile();
    AtomicFile(const AtomicFile &) = delete;
    AtomicFile &operator=(const AtomicFile &) = delete;

    /** Throws Error. */
    void Write(std::string_view piece);

    /** Gives the file its content; nothing may be written afterwards. Throws Error. */
    void Commit(Flush flush = Flush::ToDisk);

private:
    class Impl;

    std::filesystem::path path_; // as the caller named it
    std::unique_ptr<Impl> impl_;
};

/** WriteWholeFile, unless the file has this content already: its time then stays as it is. Returns whether it was
 * written. Throws Error. */
bool WriteWholeFileIfChanged(const std::filesystem::path &path, std::string_view content);

/** Makes a folder and those above it, as far as they are missing. Throws Error. */
void MakeFolders(const std::filesystem::path &folder);

} // namespace tavrik::base

#endif
