/* Work that may end the process that does it. */
#ifndef TAVRIK_BASE_APART_H
#define TAVRIK_BASE_APART_H

#include <functional>
#include <optional>
#include <string>

namespace tavrik::base {

/** Does the work in a copy of this process, which ends after it, and waits for that. What the work changes in memory is
 * lost with the copy; an exception ends the work. Returns "" when the work came to its end, else what ended it: a
 * signal, or `seconds` having passed. Nothing, and the work is not done, where the system makes no such copy: on
 * Windows, and where it has no room for one. Call it while the process has one thread. */
std::optional<std::string> TryApart(const std::function<void()> &work, unsigned seconds);

} // namespace tavrik::base

#endif
