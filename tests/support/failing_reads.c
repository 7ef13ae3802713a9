/* Preloaded into a program: the read of files whose number is in TAVRIK_FAILING_READ, and all after it, fail as they do
 * on a bad disk; the read of a file that has as many bytes as TAVRIK_ENDING_READ says ends the program. */
#define _GNU_SOURCE // NOLINT(readability-identifier-naming): the C library wants it so
#include <errno.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static ssize_t Read(int file, void *buffer, size_t length, long offset) {
    static atomic_long count;
    const char *const first = getenv("TAVRIK_FAILING_READ");
    if (first != NULL && atomic_fetch_add(&count, 1) + 1 >= atol(first)) {
        errno = EIO;
        return -1;
    }
    const char *const ending = getenv("TAVRIK_ENDING_READ");
    struct stat status;
    if (ending != NULL && fstat(file, &status) == 0 && status.st_size == atol(ending))
        raise(SIGSEGV);
    return syscall(SYS_pread64, file, buffer, length, offset);
}

__attribute__((visibility("default"))) ssize_t pread(int file, void *buffer, size_t length, off_t offset) {
    return Read(file, buffer, length, offset);
}

__attribute__((visibility("default"))) ssize_t pread64(int file, void *buffer, size_t length, off64_t offset) {
    return Read(file, buffer, length, offset);
}
