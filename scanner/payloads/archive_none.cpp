// For builds without the archive library.

#include "scanner/payloads/archive_container.h"

namespace tavrik::scanner::payloads {

const bool kReadsArchives = false;

std::unique_ptr<Container> OpenArchive(base::ByteSource &) {
    return nullptr;
}

std::unique_ptr<Container> OpenArchivePayload(base::ByteSource &, const Extent &extent) {
    return std::make_unique<UnreadableContainer>("this build has no library that reads a " + extent.description +
                                                 "; carve it, and open it with another program such as 7z");
}

} // namespace tavrik::scanner::payloads
