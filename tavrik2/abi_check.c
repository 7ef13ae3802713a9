/* The public header is C11: compiling it here checks every size and offset with a C compiler. */
#include "tavrik2/tavrik2.h"

TAVRIK_STATIC_ASSERT(sizeof(LocatorTableImage) == 12 * LOCATOR_COUNT + 4,
                     "the count follows the entries without padding");
