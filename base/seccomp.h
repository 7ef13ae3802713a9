/* A list of the system calls that a thread may make. Part of the sandbox. */
#ifndef TAVRIK_BASE_SECCOMP_H
#define TAVRIK_BASE_SECCOMP_H

namespace tavrik::base {

/** Whether the kernel filters system calls, and the list is made for this processor. */
bool HasSystemCallFilter();

/** From now on other calls fail with ENOSYS. Needs "no new privileges". False when that fails. */
bool RestrictSystemCalls();

} // namespace tavrik::base

#endif
