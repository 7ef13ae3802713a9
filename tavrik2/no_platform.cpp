// For programs that link the locators to show their gates and call those of a loaded module only: the two operations of
// platform.hbx that the linked ones refer to, which nothing there reaches.

#include <cstdlib>

#include "tavrik2/lifecycle/platform.h"

void *PlatformAlloc(uint32_t, uint32_t, uint32_t) {
    std::abort();
}

void PlatformFree(void *) {
    std::abort();
}
