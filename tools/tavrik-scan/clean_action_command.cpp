#include <string>

#include <fmt/format.h>

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/module.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

ExitCode RunCleanAction(const fs::path &module_path, uint32_t rule_id, const fs::path &file, uint32_t code) {
    const scanner::Module module(module_path);
    const scanner::CleanDecision decision = module.AskCleanAction(file, code, rule_id);
    const std::string answer =
        decision.action == CLEAN_ACTION_NONE
            ? "no action"
            : fmt::format("action {}: {}", decision.action, scanner::ActionMeaning(decision.action));
    base::Print(fmt::format("{}: rule {}, code {}: result {}, {}\n", base::PrintablePath(file), rule_id, code,
                            decision.applies ? 1 : 0, answer));
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its name and its permissions");
        return kErrorHappened;
    }
    return decision.applies ? kFound : kNothingFound;
}

} // namespace tavrik::scan_tool
