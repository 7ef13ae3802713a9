#include "tools/scanning/run_facts.h"

#include <chrono>

#include <fmt/format.h>

#include "base/version.h"
#include "scanner/identity.h"

namespace tavrik::scanning {

namespace {

std::string CommandText(const std::vector<std::string> &arguments) {
    std::string text;
    for (const std::string &argument : arguments) {
        const bool is_plain = !argument.empty() && argument.find_first_of(" \t\"'\\$&;|<>()*?[]`") == std::string::npos;
        text += (text.empty() ? "" : " ") + (is_plain ? argument : '"' + argument + '"');
    }
    return text;
}

std::string NowText() {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto day = std::chrono::floor<std::chrono::days>(now);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss time(now - day);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} UTC", int{date.year()}, unsigned{date.month()},
                       unsigned{date.day()}, time.hours().count(), time.minutes().count(), time.seconds().count());
}

} // namespace

scanner::html::RunFacts FactsOf(const scanner::Scanner &scanner, const ScanOptions &options) {
    return {.program = fmt::format("{} {}", options.program, base::kVersion),
            .database =
                fmt::format("{} rules, SHA-256 {}", scanner.rules().size(), scanner::DatabaseDigest(scanner.rules())),
            .command = CommandText(options.command_line),
            .time = NowText()};
}

} // namespace tavrik::scanning
