#include "host/commands.h"

#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <stdexcept>
#include <system_error>

#include "host/text.h"

namespace tavrik::host {

// Line by line, so that a reader at the other end of a pipe sees what stands and lines of both streams keep their
// order.
void Print(const std::string &text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (!written || std::fflush(stdout) != 0)
        throw std::runtime_error("standard output cannot be written: " + std::generic_category().message(errno));
}

void ReportError(const std::filesystem::path &file, const std::string &reason) {
    fmt::print(stderr, "tavrik-scan: {}: {}\n", PrintablePath(file), Printable(reason));
}

} // namespace tavrik::host
