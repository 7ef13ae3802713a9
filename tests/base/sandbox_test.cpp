// What a confined process can do no more, and what it still can. Each case runs in a process of its own.
#include <cerrno>
#include <csignal>
#include <functional>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/byte_source.h"
#include "base/landlock.h"
#include "base/output_folder.h"
#include "base/sandbox.h"
#include "base/seccomp.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;

/** What `body` returns in a process of its own; -1 when a signal ended it. */
int InChild(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool Reads(const char *path) {
    return std::ifstream(path).get() == 'x';
}

bool Writes(const char *path) {
    return static_cast<bool>(std::ofstream(path) << 'y' << std::flush);
}

bool Executes() {
    const char *const arguments[] = {"true", nullptr};
    // Where it runs, it ends this process with 0.
    execve("/bin/true", const_cast<char *const *>(arguments), nullptr);
    return false;
}

bool Forks() {
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    return child > 0;
}

enum class Needs { Nothing, Files, Calls }; // which part of the sandbox refuses it

struct Attempt {
    const char *name;
    Needs refused_by;
    bool (*succeeds)();
};

const Attempt kAttempts[] = {
    {"reads a named file", Needs::Nothing, [] { return Reads("named"); }},
    {"reads through a named link", Needs::Nothing, [] { return Reads("link"); }},
    {"reads below a named folder", Needs::Nothing, [] { return Reads("in/deep/file"); }},
    {"lists a named folder", Needs::Nothing,
     [] { return fs::directory_iterator("in/deep") != fs::directory_iterator(); }},
    {"makes a file", Needs::Nothing, [] { return Writes("out/new"); }},
    {"makes a folder", Needs::Nothing,
     [] {
         return base::OutputFolder("out").MakeFolder(std::vector<std::string>{"a", "b"});
     }},
    {"replaces a file", Needs::Nothing,
     [] { return Writes("out/temporary") && rename("out/temporary", "out/old") == 0 && unlink("out/old") == 0; }},
    {"has temporary files", Needs::Nothing,
     [] {
         base::FileSource source = base::FileSource::Temporary();
         source.Append(BytesOf("x"));
         return source.size() == 1;
     }},
    {"starts threads", Needs::Nothing,
     [] {
         bool runs = false;
         std::thread([&] { runs = Reads("named"); }).join();
         return runs;
     }},
    {"reads another file", Needs::Files, [] { return Reads("other"); }},
    {"reads another file in a thread", Needs::Files,
     [] {
         bool reads = false;
         std::thread([&] { reads = Reads("other"); }).join();
         return reads;
     }},
    {"reads through a link in a named folder", Needs::Files, [] { return Reads("in/link"); }},
    {"lists another folder", Needs::Files,
     [] {
         std::error_code error;
         return fs::directory_iterator(".", error) != fs::directory_iterator();
     }},
    {"writes to a named file", Needs::Files, [] { return Writes("named"); }},
    {"makes a file beside what is read", Needs::Files, [] { return Writes("in/new"); }},
    {"removes what is read", Needs::Files, [] { return unlink("in/deep/file") == 0; }},
    {"moves a file out of its folder", Needs::Files, [] { return Writes("out/m") && rename("out/m", "m") == 0; }},
    {"makes a link", Needs::Calls, [] { return symlink("/", "out/root") == 0; }},
    {"changes permissions by name", Needs::Calls, [] { return chmod("named", 0600) == 0; }},
    {"starts a process", Needs::Calls, Forks},
    {"makes a socket", Needs::Calls, [] { return socket(AF_UNIX, SOCK_STREAM, 0) >= 0; }},
    {"signals another process", Needs::Calls, [] { return kill(getppid(), 0) == 0; }},
    {"traces", Needs::Calls, [] { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0; }},
    {"takes privileges", Needs::Calls, [] { return setuid(getuid()) == 0; }},
    {"asks the terminal to type", Needs::Calls, [] { return ioctl(0, TIOCSTI, "x") == 0 || errno != ENOSYS; }},
};

constexpr int kNotEntered = 99;

class Sandbox : public testing::Test {
protected:
    void SetUp() override {
        if (base::SandboxSupport().find("instrumented") != std::string::npos)
            GTEST_SKIP() << "this build has no sandbox";
    }

    static void MakeFiles() {
        for (const char *path : {"in", "out", "link"})
            fs::remove_all(path);
        for (const char *file : {"named", "other", "in/deep/file", "out/old"})
            Write(file, "x");
        fs::create_symlink("named", "link");
        fs::create_symlink("../other", "in/link");
    }

    // Whether the attempt succeeds in a process that has entered the sandbox, after `before`.
    static bool Succeeds(const Attempt &attempt, const std::string &missing, const std::function<void()> &before = {}) {
        MakeFiles();
        const int code = InChild([&] {
            if (before)
                before();
            const std::string said = base::EnterSandbox({false, {"named", "link", "in", "missing"}, {"out"}});
            return said.find(missing) == std::string::npos || (missing.empty() && !said.empty()) ? kNotEntered
                   : attempt.succeeds()                                                          ? 0
                                                                                                 : 1;
        });
        EXPECT_NE(code, kNotEntered) << "it says something else";
        EXPECT_NE(code, -1) << attempt.name << ": a signal";
        return code == 0;
    }

    const FreshFolder folder_;
};

TEST_F(Sandbox, RefusesWhatTheScanDoesNotNeed) {
    if (base::LandlockVersion() == 0 || !base::HasSystemCallFilter())
        GTEST_SKIP() << "this kernel has " << base::SandboxSupport();
    for (const Attempt &attempt : kAttempts)
        EXPECT_EQ(Succeeds(attempt, ""), attempt.refused_by == Needs::Nothing) << attempt.name;
    EXPECT_FALSE(Succeeds({"runs a program", Needs::Calls, Executes}, ""));
    // Unconfined all of it succeeds, or the cases would show nothing.
    for (const Attempt &attempt : kAttempts) {
        MakeFiles();
        EXPECT_EQ(InChild([&] { return attempt.succeeds() ? 0 : 1; }), 0) << attempt.name;
    }
}

/** Makes the kernel answer a system call as one that does not have it. */
void Hide(uint32_t call) {
    const sock_filter program[] = {{BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
                                   {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call},
                                   {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | ENOSYS},
                                   {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW}};
    const sock_fprog filter = {4, const_cast<sock_filter *>(program)};
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    syscall(__NR_seccomp, SECCOMP_SET_MODE_FILTER, 0, &filter);
}

TEST_F(Sandbox, SaysWhatAnOldKernelLacksAndDoesTheRest) {
    if (!base::HasSystemCallFilter())
        GTEST_SKIP() << "this kernel has " << base::SandboxSupport();
    constexpr uint32_t kLandlock = 444;
    const auto no_files = [] { Hide(kLandlock); };
    const auto no_calls = [] { Hide(__NR_seccomp); };
    const bool has_landlock = base::LandlockVersion() != 0;
    for (const Attempt &attempt : kAttempts) {
        EXPECT_EQ(Succeeds(attempt, "no Landlock", no_files), attempt.refused_by != Needs::Calls) << attempt.name;
        if (has_landlock && attempt.refused_by != Needs::Calls) {
            EXPECT_EQ(Succeeds(attempt, "no seccomp", no_calls), attempt.refused_by == Needs::Nothing) << attempt.name;
        }
    }
    const auto neither = [&] {
        no_files();
        no_calls();
    };
    EXPECT_TRUE(Succeeds(kAttempts[0], "neither", neither));
    EXPECT_EQ(InChild([&] {
                  neither();
                  return base::SandboxSupport() == "no Landlock, no seccomp" ? 0 : 1;
              }),
              0);
}

} // namespace
} // namespace tavrik::tests
