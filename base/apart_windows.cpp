#include "base/apart.h"

namespace tavrik::base {

std::optional<std::string> TryApart(const std::function<void()> & /*work*/, unsigned /*seconds*/) {
    return std::nullopt;
}

} // namespace tavrik::base
