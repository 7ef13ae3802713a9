#include "base/atomic_file.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "base/error.h"
#include "base/system.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40; // in a chain, as many as the system follows
constexpr int kMostNames = 64; // tried for a temporary file

[[noreturn]] void Fail(const fs::path &path, const std::error_code &error) {
    throw Error(path, fmt::format("cannot be written: {}; check its folder, your permissions and the free space",
                                  error.message()));
}

std::error_code LastError() {
    return {errno, std::generic_category()};
}

// The path that symbolic links lead to, whether or not there is a file.
fs::path FollowLinks(const fs::path &path) {
    fs::path target = path;
    std::error_code error;
    for (int links = 0; links < kMostLinks; ++links) {
        if (!fs::is_symlink(fs::symlink_status(target, error)))
            return target;
        const fs::path next = fs::read_symlink(target, error);
        if (error)
            Fail(path, error);
        target = target.parent_path() / next; // `next` alone where it is absolute
    }
    Fail(path, std::make_error_code(std::errc::too_many_symbolic_link_levels));
}

// Writes all and closes the stream.
std::error_code WriteAndClose(std::FILE *stream, std::string_view content, Flush flush) {
    std::error_code error;
    if (std::fwrite(content.data(), 1, content.size(), stream) != content.size() || std::fflush(stream) != 0 ||
        (flush == Flush::ToDisk && !FlushToDisk(stream)))
        error = LastError();
    if (std::fclose(stream) != 0 && !error)
        error = LastError();
    return error;
}

// A new file in the folder of the one that it is to replace. It is removed again if it has not replaced it.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path &target) {
        // The name does not grow with the target's, which may have the greatest length already.
        std::random_device random;
        for (int tries = 0; stream_ == nullptr && tries < kMostNames; ++tries) {
            path_ = target.parent_path() / fmt::format(".tavrik-{:08x}.tmp", random());
            stream_ = CreateNewFile(path_);
            if (stream_ == nullptr && errno != EEXIST)
                break;
        }
    }
    ~TemporaryFile() {
        std::error_code ignored;
        if (stream_ != nullptr)
            std::fclose(stream_);
        if (exists_)
            fs::remove(path_, ignored);
    }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    std::error_code Replace(const fs::path &target, bool is_there, std::string_view content, Flush flush) {
        if (stream_ == nullptr)
            return LastError();
        exists_ = true;
        if (is_there && !CopyPermissions(target, stream_))
            return LastError();
        std::error_code error = WriteAndClose(std::exchange(stream_, nullptr), content, flush);
        if (!error)
            error = RenameOver(path_, target);
        exists_ = static_cast<bool>(error);
        return error;
    }

private:
    fs::path path_;
    std::FILE *stream_ = nullptr;
    bool exists_ = false;
};

} // namespace

void WriteWholeFile(const fs::path &path, std::string_view content, Flush flush) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        Fail(path, std::make_error_code(std::errc::is_a_directory));
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        std::FILE *const stream = OpenForWriting(path);
        error = stream == nullptr ? LastError() : WriteAndClose(stream, content, Flush::None);
    } else {
        const fs::path target = FollowLinks(path);
        error = TemporaryFile(target).Replace(target, fs::exists(status), content, flush);
    }
    if (error)
        Fail(path, error);
}

void WriteWholeFile(const fs::path &path, std::span<const uint8_t> content, Flush flush) {
    WriteWholeFile(path, std::string_view(reinterpret_cast<const char *>(content.data()), content.size()), flush);
}

bool WriteWholeFileIfChanged(const fs::path &path, std::string_view content) {
    std::ifstream old(path, std::ios::binary);
    if (old && std::string{std::istreambuf_iterator<char>(old), {}} == content)
        return false;
    old.close();
    WriteWholeFile(path, content);
    return true;
}

void MakeFolders(const fs::path &folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw Error(folder, fmt::format("the folder cannot be made: {}; name another one", error.message()));
}

} // namespace tavrik::base
