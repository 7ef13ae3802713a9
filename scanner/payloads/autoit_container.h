/* The script and the files in a compiled AutoIt script. */
#ifndef TAVRIK_SCANNER_PAYLOADS_AUTOIT_CONTAINER_H
#define TAVRIK_SCANNER_PAYLOADS_AUTOIT_CONTAINER_H

#include <memory>

#include "scanner/payloads/container.h"

namespace tavrik::scanner::payloads {

/** The contents of the script archive at `extent.offset`, for OpenPayload. Never null. The script is the bytes it is:
 * tokens as "script.a3s" (EA06), text as "script.au3" (EA05). */
std::unique_ptr<Container> OpenAutoIt(base::ByteSource &source, const Extent &extent);

} // namespace tavrik::scanner::payloads

#endif
