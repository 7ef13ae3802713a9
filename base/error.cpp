#include "base/error.h"

#include <iterator>

#include "base/text.h"

namespace tavrik::base {

namespace {

// In the order of the codes.
constexpr std::string_view kNames[] = {"failed",
                                       "not-found",
                                       "permission-denied",
                                       "is-folder",
                                       "not-regular",
                                       "link-loop",
                                       "read-failed",
                                       "too-large",
                                       "timed-out",
                                       "out-of-memory",
                                       "not-pe",
                                       "not-carved",
                                       "encrypted",
                                       "not-unpacked",
                                       "cancelled",
                                       "module-missing",
                                       "module-unloadable",
                                       "module-foreign",
                                       "module-path",
                                       "companion-missing",
                                       "companion-unusable",
                                       "module-init"};
static_assert(std::size(kNames) == static_cast<std::size_t>(ErrorCode::Count));

} // namespace

std::string_view ErrorCodeName(ErrorCode code) {
    return kNames[static_cast<std::size_t>(code)];
}

Error::Error(const std::filesystem::path &file, const std::string &reason, ErrorCode code)
    : std::runtime_error(PrintablePath(file) + ": " + reason), reason_(reason), code_(code) {}

} // namespace tavrik::base
