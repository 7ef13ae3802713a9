#include <fmt/format.h>
#include <string>
#include <string_view>

#include "host/commands.h"
#include "host/module.h"
#include "host/text.h"

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

// The module hands out codes; what they mean is this host's decision.
std::string_view Meaning(uint32_t action) {
    switch (action) {
    case CLEAN_ACTION_CANNOT_OPEN:
        return "the file cannot be opened for reading and writing";
    case CLEAN_ACTION_4021:
        return "quarantine the file: it is harmful as a whole";
    case CLEAN_ACTION_4024:
        return "quarantine the file, and look for what it has downloaded";
    default:
        return "an action that this host does not know";
    }
}

} // namespace

ExitCode RunCleanAction(const fs::path &module_path, uint32_t rule_id, const fs::path &file, uint32_t code) {
    const Module module(module_path);
    const CleanDecision decision = module.AskCleanAction(file, code, rule_id);
    const std::string answer = decision.action == CLEAN_ACTION_NONE
                                   ? "no action"
                                   : fmt::format("action {}: {}", decision.action, Meaning(decision.action));
    Print(fmt::format("{}: rule {}, code {}: result {}, {}\n", PrintablePath(file), rule_id, code,
                      decision.applies ? 1 : 0, answer));
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its name and its permissions");
        return kErrorHappened;
    }
    return decision.applies ? kFound : kNothingFound;
}

} // namespace tavrik::host
