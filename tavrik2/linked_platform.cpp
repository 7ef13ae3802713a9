// For programs that link the locators instead of loading them: the two operations of platform.hbx that locators call.

#include <cstdlib>

#include "tavrik2/lifecycle/platform.h"

void *PlatformAlloc(uint32_t size, uint32_t, uint32_t) {
    return std::malloc(size);
}

void PlatformFree(void *block) {
    std::free(block);
}
