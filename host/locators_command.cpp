#include <fmt/format.h>

#include "host/commands.h"
#include "host/locator_info.h"

namespace tavrik::host {

ExitCode RunLocators() {
    constexpr const char *kLine = "{:>5}  {:<18}  {}\n";
    fmt::print(fmt::runtime(kLine), "entry", "finds", "recognised by, and where the payload stands");
    for (uint32_t entry = 0; entry < kLocatorInfo.size(); ++entry) {
        const LocatorInfo &info = kLocatorInfo[entry];
        fmt::print(fmt::runtime(kLine), entry, entry == kDecliningEntry ? "nothing" : KindName(info.kind),
                   info.description);
    }
    return kNothingFound;
}

} // namespace tavrik::host
