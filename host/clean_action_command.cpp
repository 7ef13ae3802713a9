#include <fmt/format.h>

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
    if (decision.action == CLEAN_ACTION_NONE) {
        fmt::print("{}: rule {}, code {}: no action, result {}\n", PrintablePath(file), rule_id, code,
                   decision.applies ? 1 : 0);
        return kNothingFound;
    }
    fmt::print("{}: rule {}, code {}: action {}, result {}: {}\n", PrintablePath(file), rule_id, code, decision.action,
               decision.applies ? 1 : 0, Meaning(decision.action));
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its name and its permissions");
        return kErrorHappened;
    }
    return decision.applies ? kFound : kNothingFound;
}

} // namespace tavrik::host
