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

// Ends writing and closes the stream.
std::error_code Close(std::FILE *stream, Flush flush) {
    std::error_code error;
    if (std::fflush(stream) != 0 || (flush == Flush::ToDisk && !FlushToDisk(stream)))
        error = LastError();
    if (std::fclose(stream) != 0 && !error)
        error = LastError();
    return error;
}

} // namespace

// A device or pipe that is written to as it is, or a new file in the folder of the one that it is to replace; the new
// file is removed unless it did.
class AtomicFile::Impl {
public:
    explicit Impl(const fs::path &path) {
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (fs::is_directory(status))
            Fail(path, std::make_error_code(std::errc::is_a_directory));
        is_there_ = fs::exists(status);
        if (is_there_ && !fs::is_regular_file(status)) {
            stream_ = OpenForWriting(path);
        } else {
            target_ = FollowLinks(path);
            CreateTemporary();
        }
        if (stream_ == nullptr)
            Fail(path, LastError());
        if (IsTemporary() && is_there_ && !CopyPermissions(target_, stream_)) {
            error = LastError();
            Discard();
            Fail(path, error);
        }
    }
    ~Impl() { Discard(); }
    Impl(const Impl &) = delete;
    Impl &operator=(const Impl &) = delete;

    std::error_code Write(std::string_view piece) {
        return std::fwrite(piece.data(), 1, piece.size(), stream_) == piece.size() ? std::error_code() : LastError();
    }

    std::error_code Commit(Flush flush) {
        std::error_code error = Close(std::exchange(stream_, nullptr), IsTemporary() ? flush : Flush::None);
        if (!error && IsTemporary())
            error = RenameOver(temporary_, target_);
        if (!error)
            temporary_.clear();
        return error;
    }

private:
    bool IsTemporary() const { return !temporary_.empty(); }

    // The name does not grow with the target's, which may have the greatest length already.
    void CreateTemporary() {
        std::random_device random;
        for (int tries = 0; stream_ == nullptr && tries < kMostNames; ++tries) {
            const fs::path name = target_.parent_path() / fmt::format(".tavrik-{:08x}.tmp", random());
            stream_ = CreateNewFile(name);
            if (stream_ != nullptr)
                temporary_ = name;
            else if (errno != EEXIST)
                break;
        }
    }

    void Discard() {
        std::error_code ignored;
        if (stream_ != nullptr)
            std::fclose(std::exchange(stream_, nullptr));
        if (IsTemporary())
            fs::remove(temporary_, ignored);
        temporary_.clear();
    }

    fs::path target_;
    fs::path temporary_; // "" while there is none
    std::FILE *stream_ = nullptr;
    bool is_there_ = false;
};

AtomicFile::AtomicFile(const fs::path &path) : path_(path), impl_(std::make_unique<Impl>(path)) {}

AtomicFile::~AtomicFile() = default;

void AtomicFile::Write(std::string_view piece) {
    if (const std::error_code error = impl_->Write(piece))
        Fail(path_, error);
}

void AtomicFile::Commit(Flush flush) {
    if (const std::error_code error = impl_->Commit(flush))
        Fail(path_, error);
}

void WriteWholeFile(const fs::path &path, std::string_view content, Flush flush) {
    AtomicFile file(path);
    file.Write(content);
    file.Commit(flush);
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
