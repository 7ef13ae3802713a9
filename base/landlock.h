/* Landlock of the Linux kernel: a thread gives up access to all files but some. Part of the sandbox. */
#ifndef TAVRIK_BASE_LANDLOCK_H
#define TAVRIK_BASE_LANDLOCK_H

#include "base/sandbox.h"

namespace tavrik::base {

/** The version of the kernel's interface; 0 when there is none or it is switched off. */
int LandlockVersion();

/** Leaves the thread what `paths` and the program need. Needs "no new privileges". False when that fails. */
bool RestrictFiles(const SandboxPaths &paths);

} // namespace tavrik::base

#endif
