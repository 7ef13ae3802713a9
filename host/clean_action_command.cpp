#include <fmt/format.h>
#include <string>

#include "host/clean_action.h"
#include "host/commands.h"
#include "host/module.h"
#include "host/text.h"

namespace tavrik::host {

namespace fs = std::filesystem;

ExitCode RunCleanAction(const fs::path &module_path, uint32_t rule_id, const fs::path &file, uint32_t code) {
    const Module module(module_path);
    const CleanDecision decision = module.AskCleanAction(file, code, rule_id);
    const std::string answer = decision.action == CLEAN_ACTION_NONE
                                   ? "no action"
                                   : fmt::format("action {}: {}", decision.action, ActionMeaning(decision.action));
    Print(fmt::format("{}: rule {}, code {}: result {}, {}\n", PrintablePath(file), rule_id, code,
                      decision.applies ? 1 : 0, answer));
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its name and its permissions");
        return kErrorHappened;
    }
    return decision.applies ? kFound : kNothingFound;
}

} // namespace tavrik::host
