// scansdk.hbx, reduced to its entry point: it has no scan functions to offer. The engine's modules look the entry point
// up, but do not call it.
#include "tavrik2/abi.h"

TAVRIK_EXTERN_C_BEGIN

/* May be called with any arguments, which it leaves alone. Returns null: there are no scan functions. */
TAVRIK_API void *GetIScanFunctionsPtr() {
    return nullptr;
}

TAVRIK_EXTERN_C_END
