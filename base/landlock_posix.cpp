// The numbers are those of the kernel's interface for programs (linux/landlock.h), which older headers have in part.
#include <algorithm>
#include <array>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/landlock.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

// The same numbers on all processors.
constexpr long kCreateRuleset = 444;
constexpr long kAddRule = 445;
constexpr long kRestrictSelf = 446;
constexpr unsigned kAskVersion = 1;
constexpr int kPathBeneath = 1;

enum Access : uint64_t {
    kExecute = 1 << 0,
    kWriteFile = 1 << 1,
    kReadFile = 1 << 2,
    kReadFolder = 1 << 3,
    kRemoveFile = 1 << 5,
    kMakeFolder = 1 << 7,
    kMakeFile = 1 << 8,
    kTruncate = 1 << 14
};
constexpr uint64_t kReadAccess = kReadFile | kReadFolder;
constexpr uint64_t kWriteAccess = kReadAccess | kWriteFile | kRemoveFile | kMakeFolder | kMakeFile | kTruncate;
constexpr uint64_t kFileAccess = kWriteFile | kReadFile | kTruncate; // what a rule about a file may name

// All rights to files that a version of the interface knows: they count up from bit 0.
constexpr std::array<uint64_t, 6> kKnownAccess = {0, 0x1fff, 0x3fff, 0x7fff, 0x7fff, 0xffff};
constexpr int kFirstWithNetwork = 4;
constexpr uint64_t kBindAndConnect = 3;
constexpr int kFirstWithScopes = 6;
constexpr uint64_t kSocketsAndSignals = 3;

// A shorter structure of an older kernel is the same with zeros at its end.
struct RulesetAttributes {
    uint64_t access = 0;
    uint64_t network = 0;
    uint64_t scopes = 0;
};

struct [[gnu::packed]] PathAttributes {
    uint64_t access;
    int32_t descriptor;
};

// What libraries read while they run: other libraries, character tables, settings, the number of processors.
constexpr const char *kProgramPaths[] = {"/lib",
                                         "/lib64",
                                         "/usr/lib",
                                         "/usr/lib64",
                                         "/usr/local/lib",
                                         "/etc/ld.so.cache",
                                         "/etc/ssl",
                                         "/etc/localtime",
                                         "/usr/share/zoneinfo",
                                         "/dev/null",
                                         "/dev/urandom",
                                         "/sys/devices/system/cpu",
                                         "/proc/sys/vm/overcommit_memory"};

// Paths that do not exist, and pipes, to which the kernel knows no rules and which stay open, get none.
void Allow(int ruleset, const fs::path &path, uint64_t access, uint64_t known) {
    const int descriptor = open(path.c_str(), O_PATH | O_CLOEXEC);
    struct stat status = {};
    if (descriptor >= 0 && fstat(descriptor, &status) == 0) {
        const uint64_t possible = S_ISDIR(status.st_mode) ? access : access & kFileAccess;
        const PathAttributes attributes = {possible & known, descriptor};
        syscall(kAddRule, ruleset, kPathBeneath, &attributes, 0u);
    }
    if (descriptor >= 0)
        close(descriptor);
}

} // namespace

int LandlockVersion() {
    const long version = syscall(kCreateRuleset, nullptr, std::size_t{0}, kAskVersion);
    return version > 0 ? static_cast<int>(version) : 0;
}

bool RestrictFiles(const SandboxPaths &paths) {
    const int version = LandlockVersion();
    if (version == 0)
        return false;
    const uint64_t known =
        kKnownAccess[std::min<std::size_t>(static_cast<std::size_t>(version), kKnownAccess.size() - 1)];
    RulesetAttributes attributes;
    attributes.access = known;
    attributes.network = version >= kFirstWithNetwork ? kBindAndConnect : 0;
    attributes.scopes = version >= kFirstWithScopes ? kSocketsAndSignals : 0;
    const int ruleset = static_cast<int>(syscall(kCreateRuleset, &attributes, sizeof attributes, 0u));
    if (ruleset < 0)
        return false;
    for (const char *path : kProgramPaths)
        Allow(ruleset, path, kReadAccess, known);
    for (const fs::path &path : paths.read)
        Allow(ruleset, path, kReadAccess, known);
    if (paths.read_everything)
        Allow(ruleset, "/", kReadAccess, known);
    for (const fs::path &path : paths.write)
        Allow(ruleset, path, kWriteAccess, known);
    std::error_code ignored;
    if (const fs::path temporary = fs::temp_directory_path(ignored); !ignored)
        Allow(ruleset, temporary, kWriteAccess, known);
    const bool restricted = syscall(kRestrictSelf, ruleset, 0u) == 0;
    close(ruleset);
    return restricted;
}

} // namespace tavrik::base
