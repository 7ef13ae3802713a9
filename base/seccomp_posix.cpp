// The numbers of the filter's language are those of the kernel's linux/seccomp.h, linux/filter.h and linux/audit.h.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>
#include <vector>

#include "base/seccomp.h"

namespace tavrik::base {

#if defined(__x86_64__) || defined(__aarch64__)

namespace {

#ifdef __x86_64__
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#else
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#endif

// System calls that are allowed whatever their arguments, those of a scan's inner loop first: the kernel goes through
// the list from its beginning. None of them runs a program, starts a process, or makes a connection.
constexpr uint32_t kAllowed[] = {
    __NR_pread64,
    __NR_read,
    __NR_futex,
    __NR_openat,
    __NR_close,
    __NR_fstat,
    __NR_newfstatat,
    __NR_lseek,
    __NR_write,
    __NR_getdents64,
    __NR_mmap,
    __NR_munmap,
    __NR_mprotect,
    __NR_mremap,
    __NR_madvise,
    __NR_brk,
#ifdef __x86_64__
    // What newer processors have only in the form that takes a folder.
    __NR_open,
    __NR_stat,
    __NR_lstat,
    __NR_access,
    __NR_poll,
    __NR_mkdir,
    __NR_rmdir,
    __NR_unlink,
    __NR_rename,
    __NR_readlink,
    __NR_getrlimit,
#endif
    // Files. Permissions and times are changed of open files only.
    __NR_statx,
    __NR_pwrite64,
    __NR_readv,
    __NR_writev,
    __NR_preadv,
    __NR_preadv2,
    __NR_pwritev,
    __NR_fadvise64,
    __NR_readahead,
    __NR_faccessat,
    __NR_readlinkat,
    __NR_mkdirat,
    __NR_unlinkat,
    __NR_renameat,
    __NR_renameat2,
    __NR_fchmod,
    __NR_fchown,
    __NR_fsync,
    __NR_fdatasync,
    __NR_ftruncate,
    __NR_fcntl,
    __NR_dup,
    __NR_getcwd,
    __NR_umask,
    __NR_statfs,
    __NR_fstatfs,
    __NR_ppoll,
    // Memory and threads.
    __NR_mincore,
    __NR_msync,
    __NR_sched_yield,
    __NR_sched_getaffinity,
    __NR_sched_getscheduler,
    __NR_sched_getparam,
    __NR_set_robust_list,
    __NR_get_robust_list,
    __NR_exit,
    __NR_exit_group,
    __NR_gettid,
    __NR_getpid,
    __NR_getuid,
    __NR_geteuid,
    __NR_getgid,
    __NR_getegid,
    __NR_membarrier,
    __NR_getcpu,
    // Signals to itself, clocks, facts.
    __NR_rt_sigaction,
    __NR_rt_sigprocmask,
    __NR_rt_sigreturn,
    __NR_sigaltstack,
    __NR_restart_syscall,
    __NR_nanosleep,
    __NR_clock_nanosleep,
    __NR_clock_gettime,
    __NR_clock_getres,
    __NR_gettimeofday,
    __NR_times,
    __NR_getrusage,
    __NR_sysinfo,
    __NR_uname,
    __NR_getrandom,
#ifdef __NR_rseq
    __NR_rseq,
#endif
#ifdef __NR_faccessat2
    __NR_faccessat2,
#endif
};

// System calls that are allowed with some arguments: (argument & mask) == value, of its lower 32 bits.
struct ArgumentRow {
    uint32_t call;
    uint32_t argument;
    uint32_t mask;
    uint32_t value;
};
constexpr uint32_t kWhole = 0xffffffff;
constexpr ArgumentRow kAllowedWith[] = {
    // Threads, no processes. The arguments of clone3 are in memory, where no filter sees them: it is answered as by a
    // kernel without it, and the C library takes clone.
    {__NR_clone, 0, CLONE_THREAD, CLONE_THREAD},
    // No request that types into a terminal.
    {__NR_ioctl, 1, kWhole, TCGETS},
    {__NR_ioctl, 1, kWhole, TIOCGWINSZ},
    {__NR_ioctl, 1, kWhole, FIONREAD},
    {__NR_prctl, 0, kWhole, PR_SET_NAME},
    {__NR_prctl, 0, kWhole, 0x53564d41}, // a name for an area of memory
    // Limits are read, not set.
    {__NR_prlimit64, 2, kWhole, 0},
    {__NR_utimensat, 1, kWhole, 0},
};

constexpr uint32_t Jump(uint32_t condition) {
    return BPF_JMP | condition | BPF_K;
}

constexpr uint32_t kLoad = BPF_LD | BPF_W | BPF_ABS;

// A program that returns what the kernel is to do with a call.
std::vector<sock_filter> Program() {
    std::vector<sock_filter> program;
    const auto add = [&](uint32_t code, uint32_t operand, uint8_t when_true = 0, uint8_t when_false = 0) {
        program.push_back({static_cast<uint16_t>(code), when_true, when_false, operand});
    };
    const auto add_return = [&](uint32_t answer) { add(BPF_RET | BPF_K, answer); };
    constexpr uint32_t kCall = offsetof(seccomp_data, nr);

    add(kLoad, offsetof(seccomp_data, arch));
    add(Jump(BPF_JEQ), kArchitecture, 1, 0);
    add_return(SECCOMP_RET_KILL_PROCESS);
    add(kLoad, kCall);
    for (const uint32_t call : kAllowed) {
        add(Jump(BPF_JEQ), call, 0, 1);
        add_return(SECCOMP_RET_ALLOW);
    }
    const auto add_row = [&](const ArgumentRow &row) {
        add(Jump(BPF_JEQ), row.call, 0, 5);
        add(kLoad, static_cast<uint32_t>(offsetof(seccomp_data, args) + sizeof(uint64_t) * row.argument));
        add(BPF_ALU | BPF_AND | BPF_K, row.mask);
        add(Jump(BPF_JEQ), row.value, 0, 1);
        add_return(SECCOMP_RET_ALLOW);
        add(kLoad, kCall);
    };
    for (const ArgumentRow &row : kAllowedWith)
        add_row(row);
    // A signal to itself, as abort sends it.
    add_row({__NR_tgkill, 0, kWhole, static_cast<uint32_t>(getpid())});
    // As a kernel that does not have the call: where an older call does the same, libraries take that.
    add_return(SECCOMP_RET_ERRNO | ENOSYS);
    return program;
}

} // namespace

bool HasSystemCallFilter() {
    const uint32_t action = SECCOMP_RET_KILL_PROCESS;
    return syscall(__NR_seccomp, SECCOMP_GET_ACTION_AVAIL, 0u, &action) == 0;
}

bool RestrictSystemCalls() {
    std::vector<sock_filter> program = Program();
    const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    // Nothing here runs code that is not trusted, so that the processor's speculation need not be slowed down.
    return syscall(__NR_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_SPEC_ALLOW, &filter) == 0;
}

#else // the list is not made for this processor

bool HasSystemCallFilter() {
    return false;
}

bool RestrictSystemCalls() {
    return false;
}

#endif

} // namespace tavrik::base
