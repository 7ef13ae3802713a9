#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "scanner/locator_info.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace {

ExitCode RunLocators() {
    static constexpr char kLine[] = "{:>5}  {:<18}  {}\n";
    std::string list = fmt::format(kLine, "entry", "finds", "recognised by, and where the payload is");
    for (uint32_t entry = 0; entry < scanner::kLocatorInfo.size(); ++entry) {
        const scanner::LocatorInfo &info = scanner::kLocatorInfo[entry];
        list += fmt::format(kLine, entry, entry == scanner::kDecliningEntry ? "nothing" : scanner::KindName(info.kind),
                            info.description);
    }
    base::Print(list);
    return kNothingFound;
}

} // namespace

Command AddLocators(CLI::App &app, const ScanOptions &) {
    return {app.add_subcommand("locators", "list the entries of the locator table"), RunLocators, {}};
}

} // namespace tavrik::scan_tool
