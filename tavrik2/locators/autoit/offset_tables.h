/* The known builds of entries 28 and 29, in the order in which they are tried. */
#ifndef TAVRIK2_LOCATORS_AUTOIT_OFFSET_TABLES_H
#define TAVRIK2_LOCATORS_AUTOIT_OFFSET_TABLES_H

#include "tavrik2/locators/scans/offset_table_probe.h"

namespace tavrik2 {

extern const OffsetProbeRow kOffsets28[117];
extern const OffsetProbeRow kOffsets29[76];

} // namespace tavrik2

#endif
