// Cabinets and RAR archives, and sources that are whole archives.

#include "scanner/payloads/archive_container.h"

namespace tavrik::scanner::payloads {

std::unique_ptr<Container> OpenArchivePayload(base::ByteSource &, const Extent &extent) {
    return std::make_unique<UnreadableContainer>("this build reads no cabinets and RAR archives; 7z x opens them (" +
                                                 extent.description + ")");
}

std::unique_ptr<Container> OpenArchive(base::ByteSource &) {
    return nullptr;
}

} // namespace tavrik::scanner::payloads
