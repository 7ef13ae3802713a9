/* What the module's clean actions mean to this host. */
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

/** What to do, in a sentence's part. */
std::string_view ActionMeaning(uint32_t action);

} // namespace tavrik::scanner

#endif
