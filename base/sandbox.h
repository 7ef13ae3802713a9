/* Taking from the process what it does not need, before it reads files that nobody vouches for. */
#ifndef TAVRIK_BASE_SANDBOX_H
#define TAVRIK_BASE_SANDBOX_H

#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::base {

/** What a process goes on to use. What does not exist when the sandbox is entered cannot be used later. */
struct SandboxPaths {
    bool read_everything = false;             // when nobody knows yet which files will be named
    std::vector<std::filesystem::path> read;  // files, and folders with all that is below them
    std::vector<std::filesystem::path> write; // folders in which files and folders are made and removed; files that are
                                              // written to as they are
};

/** Confines the calling thread and those that it starts, until they end: files are opened as `paths` say, besides the
 * system's libraries, which are readable, and its folder for temporary files, where files are made; no program is run,
 * no process is started, no connection is made. Files that are open stay as they are. Call it before threads are
 * started. Returns "" or, where the kernel cannot do all of that, a text for the user that says what is missing; what
 * it can do is in force then. Linux has Landlock and seccomp for it; on other systems, and in builds with sanitizers or
 * coverage, it does nothing. */
std::string EnterSandbox(const SandboxPaths &paths);

/** What the system has for EnterSandbox, such as "Landlock 7, seccomp". Confines nothing. */
std::string SandboxSupport();

} // namespace tavrik::base

#endif
