#include <sys/prctl.h>

#include <fmt/format.h>

#include "base/landlock.h"
#include "base/sandbox.h"
#include "base/seccomp.h"

namespace tavrik::base {

namespace {

// The line for the user.
[[maybe_unused]] std::string Missing(bool files, bool calls) {
    if (files && calls)
        return "";
    if (!files && !calls)
        return "not confined: this kernel offers neither Landlock nor seccomp";
    return files ? "confined in part: this kernel has no seccomp, so system calls are not limited"
                 : "confined in part: this kernel has no Landlock, so any file can be opened";
}

} // namespace

#ifdef TAVRIK_INSTRUMENTED

// Sanitizers and coverage open files of their own, and one traces this process from another at its end.
std::string EnterSandbox(const SandboxPaths & /*paths*/) {
    return "";
}

std::string SandboxSupport() {
    return "none in this build, which is instrumented";
}

#else

std::string EnterSandbox(const SandboxPaths &paths) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return Missing(false, false);
    const bool files = RestrictFiles(paths);
    return Missing(files, RestrictSystemCalls());
}

std::string SandboxSupport() {
    const int version = LandlockVersion();
    return fmt::format("{}, {}", version == 0 ? "no Landlock" : fmt::format("Landlock {}", version),
                       HasSystemCallFilter() ? "seccomp" : "no seccomp");
}

#endif

} // namespace tavrik::base
