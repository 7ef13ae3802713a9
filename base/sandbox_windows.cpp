// Windows has no means by which a running process takes rights to files from itself.
#include "base/sandbox.h"

namespace tavrik::base {

std::string EnterSandbox(const SandboxPaths & /*paths*/) {
    return ""; // nobody expects it; --version says it
}

std::string SandboxSupport() {
    return "none on this system";
}

} // namespace tavrik::base
