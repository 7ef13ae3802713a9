#include <algorithm>
#include <charconv>
#include <thread>

#include <fmt/format.h>

#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kWorkGroup[] = "What is done";
constexpr unsigned kMostThreads = 256;
constexpr double kLongestTime = 1e9; // seconds; clocks count no more than 2^63 nanoseconds

template <typename Number>
bool Parse(const std::string &text, Number &number) {
    const char *const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end;
}

double RequireTime(const std::string &option, const std::string &text) {
    double seconds = 0;
    if (Parse(text, seconds) && seconds > 0 && seconds <= kLongestTime)
        return seconds;
    throw CLI::ValidationError(
        option, fmt::format("\"{}\" is not a valid time; write a number of seconds such as 30 or 0.5, at most 1e9",
                            base::Printable(text)));
}

unsigned RequireThreads(const std::string &option, const std::string &text) {
    unsigned threads = 0;
    if (Parse(text, threads) && threads > 0 && threads <= kMostThreads)
        return threads;
    throw CLI::ValidationError(option,
                               fmt::format("\"{}\" is not a number from 1 to {}", base::Printable(text), kMostThreads));
}

} // namespace

void AddWorkOptions(CLI::App &app, ScanOptions &options) {
    options.threads = std::clamp(std::thread::hardware_concurrency(), 1u, kMostThreads);
    AddValue(app, "-j,--jobs", "N", "number of files that are scanned at once (default: one for each processor)",
             kWorkGroup, [&](const std::string &text) { options.threads = RequireThreads("--jobs", text); });
    AddValue(app, "--timeout", "SECONDS", "stop scanning a file after this time, which is an error", kWorkGroup,
             [&](const std::string &text) { options.settings.timeout = RequireTime("--timeout", text); });
    app.add_flag("--sha256", options.settings.sha256, "add the SHA-256 of each file to its JSON")->group(kWorkGroup);
    app.add_flag_callback(
           "--no-sandbox", [&options] { options.sandbox = false; },
           "do not give up access to other files, programs and the network before the first file is read (Linux)")
        ->group(kWorkGroup);
}

void AddModuleOptions(CLI::App &app, ScanOptions &options) {
    AddValue(app, "--module", "FILE", "the module to load (default: tavrik2.hbx in this program's folder)", kWorkGroup,
             [&](const std::string &text) { options.module = base::PathOf(text); });
    app.add_flag("--exit-zero", options.exit_zero, "exit with 0 also when something is found; errors still exit with 2")
        ->group(kWorkGroup);
}

} // namespace tavrik::scanning
