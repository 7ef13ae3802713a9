/* The files in a Nullsoft installer. */
#ifndef TAVRIK_SCANNER_PAYLOADS_NSIS_CONTAINER_H
#define TAVRIK_SCANNER_PAYLOADS_NSIS_CONTAINER_H

#include <memory>

#include "scanner/payloads/container.h"

namespace tavrik::scanner::payloads {

/** The contents of the installer's archive at `extent.offset`, for OpenPayload. Never null. */
std::unique_ptr<Container> OpenNsis(base::ByteSource &source, const Extent &extent);

} // namespace tavrik::scanner::payloads

#endif
