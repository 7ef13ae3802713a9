#include <algorithm>
#include <charconv>
#include <string_view>

#include <fmt/format.h>

#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kNearGroup[] = "Near misses";
constexpr char kNear[] = "--near";

std::size_t RequireConditions(const std::string &text) {
    std::size_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc() && stopped == end && number > 0 && number <= scanner::kMostFailedConditions)
        return number;
    throw CLI::ValidationError(kNear, fmt::format("\"{}\" is not a number of conditions from 1 to {}",
                                                  base::Printable(text), scanner::kMostFailedConditions));
}

} // namespace

void JoinNear(std::vector<std::string> &arguments) {
    for (auto argument = arguments.begin(); argument != arguments.end() && *argument != "--"; ++argument) {
        if (*argument != kNear)
            continue;
        const auto next = argument + 1;
        const bool has_number =
            next != arguments.end() && !next->empty() && next->find_first_not_of("0123456789") == std::string::npos;
        *argument = has_number ? fmt::format("{}={}", kNear, *next) : fmt::format("{}=1", kNear);
        if (has_number)
            arguments.erase(next);
    }
}

void AddNearOptions(CLI::App &app, ScanOptions &options) {
    AddValue(app, kNear, "[N]",
             "also look for payloads that an entry would find if up to N (default 1) conditions of its gate were not "
             "asked, and for payloads of builds that no entry knows",
             kNearGroup, [&](const std::string &text) { options.settings.near_conditions = RequireConditions(text); });
    app.add_flag("--near-is-found", options.near_is_found, "near misses count for the exit code")->group(kNearGroup);
}

} // namespace tavrik::scanning
