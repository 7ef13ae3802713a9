#include "scanner/payloads/container.h"

#include "scanner/payloads/archive_container.h"
#include "scanner/payloads/autoit_container.h"
#include "scanner/payloads/nsis_container.h"

namespace tavrik::scanner::payloads {

std::unique_ptr<Container> OpenPayload(base::ByteSource &source, const Extent &extent) {
    switch (extent.format) {
    case Format::Nsis:
        return OpenNsis(source, extent);
    case Format::AutoIt:
        return OpenAutoIt(source, extent);
    case Format::Cabinet:
    case Format::Rar:
        break;
    }
    return OpenArchivePayload(source, extent);
}

} // namespace tavrik::scanner::payloads
