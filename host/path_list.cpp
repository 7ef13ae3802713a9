#include "host/path_list.h"

#include <array>
#include <fmt/format.h>
#include <optional>
#include <string_view>

#include "host/system.h"
#include "host/text.h"

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

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
            throw std::runtime_error(fmt::format("an entry is longer than {} bytes; end each path with {}",
                                                 kLongestPath, separator_ == '\0' ? "a NUL" : "a line feed"));
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

} // namespace

bool ReadPathList(const fs::path &list, char separator, const std::function<bool(const fs::path &path)> &visit) {
    const bool is_standard_input = list == "-";
    try {
        return is_standard_input ? ReadAll(InputStream::StandardInput(), separator, visit)
                                 : ReadAll(InputStream(list), separator, visit);
    } catch (const std::runtime_error &error) {
        throw PathListError(fmt::format("the list of paths {} cannot be read: {}; name a file with one path a line, "
                                        "or - for standard input",
                                        is_standard_input ? "on standard input" : PrintablePath(list), error.what()));
    }
}

} // namespace tavrik::host
