#include "base/error.h"

#include "base/text.h"

namespace tavrik::base {

Error::Error(const std::filesystem::path &file, const std::string &reason)
    : std::runtime_error(PrintablePath(file) + ": " + reason), reason_(reason) {}

} // namespace tavrik::base
