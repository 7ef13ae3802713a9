#include <fmt/format.h>
#include <string>

#include "host/commands.h"
#include "host/locator_info.h"

namespace tavrik::host {

ExitCode RunLocators() {
    static constexpr char kLine[] = "{:>5}  {:<18}  {}\n";
    std::string list = fmt::format(kLine, "entry", "finds", "recognised by, and where the payload stands");
    for (uint32_t entry = 0; entry < kLocatorInfo.size(); ++entry) {
        const LocatorInfo &info = kLocatorInfo[entry];
        list += fmt::format(kLine, entry, entry == kDecliningEntry ? "nothing" : KindName(info.kind), info.description);
    }
    Print(list);
    return kNothingFound;
}

} // namespace tavrik::host
