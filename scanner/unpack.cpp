#include "scanner/unpack.h"

#include <cerrno>
#include <cstdio>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "base/system.h"
#include "base/text.h"

namespace tavrik::scanner {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUnpackBlockSize = 64 * 1024;

// Names that are tried for one member: each one before is taken by a file that was there.
constexpr int kMostMemberNames = 10'000;

constexpr char kInterrupted[] = "interrupted";

std::string SystemError(int error) {
    return std::generic_category().message(error);
}

} // namespace

std::string Unpacker::Unpack(payloads::Container &container, const Visitor &visit) {
    block_.resize(kUnpackBlockSize);
    while (const std::optional<payloads::Member> member = container.Next()) {
        if (base::Interruption() != 0)
            return kInterrupted;
        if (member->is_folder) {
            folder_.MakeFolder(paths_.ForFolder(member->path)); // a failure shows at the files in it
            continue;
        }
        if (!budget_.TakeFile())
            return budget_.exceeded();
        Outcome outcome = {*member, {}, {}};
        outcome.problem = Write(container, *member, outcome.path);
        if (base::Interruption() != 0)
            return kInterrupted;
        visit(outcome);
        if (!budget_.exceeded().empty())
            return budget_.exceeded();
    }
    return container.error();
}

std::string Unpacker::Write(payloads::Container &container, const payloads::Member &member, fs::path &path) {
    if (member.encrypted)
        return "is encrypted; unpack it with its password by another program, such as 7z";
    std::vector<std::string> components = paths_.ForFile(member.path);
    std::FILE *file = folder_.Create(components);
    for (int tries = 0; file == nullptr && errno == EEXIST && tries < kMostMemberNames; ++tries) {
        components = paths_.Another(std::move(components));
        file = folder_.Create(components);
    }
    const fs::path place = folder_.PathOf(components);
    if (file == nullptr)
        return fmt::format("{} cannot be created: {}; name an empty folder", base::PrintablePath(place),
                           SystemError(errno));
    std::string problem = Copy(container, file);
    if (std::fflush(file) != 0 && problem.empty())
        problem = "cannot be written: " + SystemError(errno);
    if (member.time)
        base::SetFileTime(file, *member.time);
    if (std::fclose(file) != 0 && problem.empty())
        problem = "cannot be written: " + SystemError(errno);
    if (!problem.empty()) {
        folder_.Remove(components);
        return problem;
    }
    ++files_;
    path = place;
    return "";
}

std::string Unpacker::Copy(payloads::Container &container, std::FILE *file) {
    while (const std::size_t count = container.Read(block_.data(), block_.size())) {
        if (!budget_.TakeBytes(count))
            return budget_.exceeded();
        if (base::Interruption() != 0)
            return kInterrupted;
        if (std::fwrite(block_.data(), 1, count, file) != count)
            return "cannot be written: " + SystemError(errno);
        bytes_ += count;
    }
    return container.member_error();
}

} // namespace tavrik::scanner
