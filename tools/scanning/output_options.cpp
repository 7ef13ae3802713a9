#include <fmt/format.h>

#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kOutputGroup[] = "What is shown";

// The value of one of a few words.
template <typename Value, std::size_t Count>
Value RequireWord(const std::string &option, const std::string &text,
                  const std::pair<const char *, Value> (&words)[Count]) {
    std::string all;
    for (const auto &[word, value] : words) {
        if (text == word)
            return value;
        all += (all.empty() ? "" : ", ") + std::string(word);
    }
    throw CLI::ValidationError(option, fmt::format("\"{}\" is none of {}", base::Printable(text), all));
}

void AddWhen(CLI::App &app, const char *name, base::When &value, const char *about) {
    AddValue(app, name, "auto|always|never", about, kOutputGroup, [name, &value](const std::string &text) {
        value = RequireWord<base::When>(
            name, text, {{"auto", base::When::Auto}, {"always", base::When::Always}, {"never", base::When::Never}});
    });
}

} // namespace

void AddOutputOptions(CLI::App &app, ScanOptions &options) {
    CLI::Option *json =
        app.add_flag_callback(
               "--json", [&] { options.format = scanner::ReportFormat::JsonLines; }, "the same as --format json")
            ->group(kOutputGroup);
    AddValue(app, "--format", "text|json|csv",
             "text: a line for each result (default); json: an object for each file, errors included; csv: a table",
             kOutputGroup, [&options, json](const std::string &text) {
                 if (json->count() > 0)
                     throw CLI::ValidationError("--format", "--json says the same already; leave one of them out");
                 options.format = RequireWord<scanner::ReportFormat>("--format", text,
                                                                     {{"text", scanner::ReportFormat::Text},
                                                                      {"json", scanner::ReportFormat::JsonLines},
                                                                      {"csv", scanner::ReportFormat::Csv}});
             });
    AddValue(app, "--report", "FILE", "also write a report for people to FILE: HTML, complete in itself", kOutputGroup,
             [&](const std::string &text) {
                 if (text.empty())
                     throw CLI::ValidationError("--report", "the file's name is empty");
                 options.report = base::PathOf(text);
             });
    app.add_flag("-q,--quiet", options.quiet, "no progress line and no summary")->group(kOutputGroup);
    app.add_flag("--profile", options.profile, "print at the end how much time the steps and the rules took")
        ->group(kOutputGroup);
    AddWhen(app, "--color", options.colour, "colours (auto: on terminals, unless NO_COLOR is set)");
    AddWhen(app, "--progress", options.progress, "a line that shows the progress (auto: on terminals)");
}

} // namespace tavrik::scanning
