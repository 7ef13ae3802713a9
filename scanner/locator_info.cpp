#include "scanner/locator_info.h"

namespace tavrik::scanner {

constexpr std::array<LocatorInfo, LOCATOR_COUNT> kLocatorInfo = {{
#define LOCATOR_ENTRY(number, flags, kind, description) {kind, description},
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY
}};

std::string KindName(uint32_t kind) {
    switch (kind) {
    case PAYLOAD_NULLSOFT:
        return "Nullsoft installer";
    case PAYLOAD_AUTOIT:
        return "AutoIt script";
    case PAYLOAD_RAR:
        return "RAR archive";
    case PAYLOAD_CABINET:
        return "cabinet";
    default:
        return "payload of kind " + std::to_string(kind);
    }
}

} // namespace tavrik::scanner
