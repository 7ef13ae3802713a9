#include "tools/scanning/arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <utility>

#include <fmt/format.h>

#include "base/text.h"

namespace tavrik::scanning {

std::string MarkWhole(std::string argument) {
    if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']')
        argument += '\0';
    return argument;
}

std::string WithoutMark(std::string argument) {
    if (!argument.empty() && argument.back() == '\0')
        argument.pop_back();
    return argument;
}

std::filesystem::path PathOfArgument(const std::string &argument) {
    return base::PathOf(WithoutMark(argument));
}

std::optional<uint64_t> ParseSize(const std::string &text) {
    const char *const end = text.data() + text.size();
    uint64_t whole = 0;
    auto [stopped, error] = std::from_chars(text.data(), end, whole);
    if (error != std::errc())
        return std::nullopt;
    double fraction = 0;
    const bool has_fraction = stopped != end && *stopped == '.';
    if (has_fraction) {
        const char *const digits_end =
            std::find_if_not(stopped + 1, end, [](unsigned char letter) { return std::isdigit(letter) != 0; });
        if (digits_end == stopped + 1)
            return std::nullopt;
        std::from_chars(stopped, digits_end, fraction, std::chars_format::fixed);
        stopped = digits_end;
    }
    std::string unit(stopped, end);
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    if (unit.empty() || unit == "B")
        return has_fraction ? std::nullopt : std::optional(whole);
    constexpr std::string_view kUnits = "KMG"; // each 1024 of the one before
    const std::size_t power = kUnits.find(unit[0]);
    const std::string_view rest = std::string_view(unit).substr(1);
    if (power == std::string_view::npos || !(rest.empty() || rest == "B" || rest == "IB"))
        return std::nullopt;
    const unsigned shift = 10 * (static_cast<unsigned>(power) + 1);
    if (whole > std::numeric_limits<uint64_t>::max() >> shift)
        return std::nullopt;
    return (whole << shift) + static_cast<uint64_t>(fraction * static_cast<double>(uint64_t{1} << shift));
}

uint64_t RequireSize(const std::string &option, const std::string &text) {
    const std::optional<uint64_t> size = ParseSize(text);
    if (!size)
        throw CLI::ValidationError(
            option, fmt::format("\"{}\" is not a valid size; write it like 500K, 1.5M or 2G", base::Printable(text)));
    if (*size == 0)
        throw CLI::ValidationError(option, "a size of 0 would leave out everything; leave the option out instead");
    return *size;
}

uint64_t RequireCount(const std::string &option, const std::string &text) {
    uint64_t count = 0;
    const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || stopped != text.data() + text.size() || count == 0)
        throw CLI::ValidationError(option,
                                   fmt::format("\"{}\" is not a whole number from 1 on", base::Printable(text)));
    return count;
}

CLI::Option *AddValue(CLI::App &app, const char *name, const char *type, const char *about, const char *group,
                      std::function<void(const std::string &text)> take) {
    return app
        .add_option_function<std::string>(
            name, [take = std::move(take)](const std::string &text) { take(WithoutMark(text)); }, about)
        ->type_name(type)
        ->group(group);
}

} // namespace tavrik::scanning
