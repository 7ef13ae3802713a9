#include "base/path_list.h"

#include <system_error>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr char kStandardInput[] = "-";

// No system accepts longer paths; a longer entry means that the file is not a list of paths.
constexpr std::size_t kLongestPath = 128 * 1024;

Error Unreadable(const fs::path &list, const std::string &reason, char separator) {
    return Error(fmt::format("the list of paths {} cannot be read: {}; name a file of paths that each end with {}, or "
                             "- for standard input",
                             list == kStandardInput ? "on standard input" : PrintablePath(list), reason,
                             separator == '\0' ? "a NUL" : "a line feed"));
}

InputStream Open(const fs::path &list, char separator) {
    try {
        return list == kStandardInput ? InputStream::StandardInput() : InputStream(list);
    } catch (const std::system_error &error) {
        throw Unreadable(list, error.code().message(), separator);
    }
}

// Lists that are made on Windows have its line ends; a file whose name truly ends with a carriage return is there.
bool HasOddName(const std::string &entry) {
    std::error_code ignored;
    return fs::path::preferred_separator == '/' && fs::exists(fs::symlink_status(PathOf(entry), ignored));
}

} // namespace

PathList::PathList(const fs::path &list, char separator)
    : list_(list), separator_(separator), input_(Open(list, separator)) {}

std::optional<fs::path> PathList::Next() {
    while (true) {
        const std::size_t end = piece_.find(separator_);
        if (end != std::string_view::npos) {
            entry_ += piece_.substr(0, end);
            piece_.remove_prefix(end + 1);
            if (std::optional<fs::path> path = TakeEntry())
                return path;
            continue;
        }
        entry_ += piece_;
        if (entry_.size() > kLongestPath)
            throw Unreadable(list_, fmt::format("an entry is longer than {} bytes", kLongestPath), separator_);
        piece_ = {buffer_.data(), ReadPiece()};
        if (piece_.empty()) // an entry that an interruption cut off may be half a path
            return Interruption() == 0 ? TakeEntry() : std::nullopt;
    }
}

std::size_t PathList::ReadPiece() {
    try {
        return input_.Read(buffer_.data(), buffer_.size());
    } catch (const std::system_error &error) {
        throw Unreadable(list_, error.code().message(), separator_);
    }
}

// Nothing when the entry is empty.
std::optional<fs::path> PathList::TakeEntry() {
    std::optional<fs::path> path;
    if (separator_ == '\n' && entry_.ends_with('\r') && !HasOddName(entry_))
        entry_.pop_back();
    if (!entry_.empty())
        path = PathOf(entry_);
    entry_.clear();
    return path;
}

} // namespace tavrik::base
