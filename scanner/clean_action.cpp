#include "scanner/clean_action.h"

#include "tavrik2/heur_clean.h"

namespace tavrik::scanner {

namespace {

// The module returns codes; each host decides what they mean.
struct Action {
    uint32_t code;
    std::string_view name;
    std::string_view meaning;
};

constexpr Action kActions[] = {
    {CLEAN_ACTION_NONE, "none", "nothing"},
    {CLEAN_ACTION_CANNOT_OPEN, "cannot-open", "the file cannot be opened for reading and writing"},
    {CLEAN_ACTION_4021, "quarantine", "quarantine the file: it is harmful as a whole"},
    {CLEAN_ACTION_4024, "quarantine-and-trace", "quarantine the file, and look for what it has downloaded"},
};

const Action *Find(uint32_t code) {
    for (const Action &action : kActions)
        if (action.code == code)
            return &action;
    return nullptr;
}

} // namespace

std::string ActionName(uint32_t action) {
    const Action *known = Find(action);
    return known != nullptr ? std::string(known->name) : "action-" + std::to_string(action);
}

std::string_view ActionMeaning(uint32_t action) {
    const Action *known = Find(action);
    return known != nullptr ? known->meaning : "an action that this host does not know";
}

} // namespace tavrik::scanner
