#include "scanner/payloads/container.h"

#include "scanner/payloads/archive_container.h"

namespace tavrik::scanner::payloads {

std::unique_ptr<Container> OpenPayload(base::ByteSource &source, const Extent &extent) {
    switch (extent.format) {
    case Format::Nsis:
    case Format::AutoIt:
        return std::make_unique<UnreadableContainer>("this build does not read the contents of " + extent.description +
                                                     "; 7z x opens Nullsoft installers");
    case Format::Cabinet:
    case Format::Rar:
        break;
    }
    return OpenArchivePayload(source, extent);
}

} // namespace tavrik::scanner::payloads
