#include "base/path_list.h"

#include <array>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "base/system.h"
#include "base/text.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

constexpr char kStandardInput[] = "-";

// No system takes longer paths; a longer entry means that the list is none.
constexpr std::size_t kLongestPath = 128 * 1024;

// Cuts a text that comes in pieces into its entries.
class Cutter {
public:
    Cutter(char separator, const std::function<bool(const fs::path &path)> &visit)
        : separator_(separator), visit_(visit) {}

    bool Take(std::string_view piece) {
        for (std::size_t end; (end = piece.find(separator_)) != std::string_view::npos; piece.remove_prefix(end + 1)) {
            entry_ += piece.substr(0, end);
            if (!HandOn())
                return false;
        }
        entry_ += piece;
        if (entry_.size() > kLongestPath)
            throw std::length_error(fmt::format("an entry is longer than {} bytes", kLongestPath));
        return true;
    }

    bool HandOn() {
        // Lists that are made on Windows may have its line ends; no file there is called so.
        if (separator_ == '\n' && fs::path::preferred_separator == '\\' && entry_.ends_with('\r'))
            entry_.pop_back();
        const bool goes_on = entry_.empty() || visit_(PathOf(entry_));
        entry_.clear();
        return goes_on;
    }

private:
    char separator_;
    const std::function<bool(const fs::path &path)> &visit_;
    std::string entry_;
};

bool ReadAll(InputStream &&input, char separator, const std::function<bool(const fs::path &path)> &visit) {
    Cutter cutter(separator, visit);
    std::array<char, 64 * 1024> buffer;
    while (const std::size_t count = input.Read(buffer.data(), buffer.size()))
        if (!cutter.Take({buffer.data(), count}))
            return false;
    // What an interruption cut off may be half a path.
    return Interruption() == 0 && cutter.HandOn();
}

std::string Complaint(const fs::path &list, const std::string &reason, char separator) {
    return fmt::format("the list of paths {} cannot be read: {}; name a file of paths that each end with {}, or - for "
                       "standard input",
                       list == kStandardInput ? "on standard input" : PrintablePath(list), reason,
                       separator == '\0' ? "a NUL" : "a line feed");
}

} // namespace

bool ReadPathList(const fs::path &list, char separator, const std::function<bool(const fs::path &path)> &visit) {
    try {
        return list == kStandardInput ? ReadAll(InputStream::StandardInput(), separator, visit)
                                      : ReadAll(InputStream(list), separator, visit);
    } catch (const std::system_error &error) {
        throw PathListError(Complaint(list, error.code().message(), separator));
    } catch (const std::length_error &error) {
        throw PathListError(Complaint(list, error.what(), separator));
    }
}

} // namespace tavrik::base
