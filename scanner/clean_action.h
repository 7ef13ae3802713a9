/* The names and meanings that this host gives to the module's clean actions. */
#ifndef TAVRIK_SCANNER_CLEAN_ACTION_H
#define TAVRIK_SCANNER_CLEAN_ACTION_H

#include <cstdint>
#include <string>
#include <string_view>

namespace tavrik::scanner {

/** The host's code for what it found that the module has clean actions for. */
inline constexpr uint32_t kCleanableFinding = 7422;

/** An action's name for lists and programs, such as "quarantine"; "none" for CLEAN_ACTION_NONE, "action-N" for one that
 * this host does not know. */
std::string ActionName(uint32_t action);

/** What to do, as a part of a sentence. */
std::string_view ActionMeaning(uint32_t action);

} // namespace tavrik::scanner

#endif
