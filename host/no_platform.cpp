// Linked into tavrik-scan are the locators whose gates it shows; the ones that it calls are those of the loaded module.
// The linked ones want two operations of platform.hbx, which nothing here reaches.

#include "tavrik2/lifecycle/platform.h"

#include <cstdlib>

void *PlatformAlloc(uint32_t, uint32_t, uint32_t) {
    std::abort();
}

void PlatformFree(void *) {
    std::abort();
}
