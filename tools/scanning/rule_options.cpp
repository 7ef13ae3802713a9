#include <fmt/format.h>

#include "base/text.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

namespace {

constexpr char kRuleGroup[] = "Rules";
constexpr char kLabel[] = "--label";

LabelledPath RequireLabelled(const std::string &text) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == text.size())
        throw CLI::ValidationError(kLabel,
                                   fmt::format("\"{}\" is not NAME=PATH, such as clean=/usr", base::Printable(text)));
    return {text.substr(0, sign), base::PathOf(text.substr(sign + 1))};
}

} // namespace

void AddRuleOptions(CLI::App &app, ScanOptions &options) {
    app.add_option_function<std::vector<std::string>>(
           "--rules",
           [&](const std::vector<std::string> &files) {
               for (const std::string &file : files)
                   options.rule_files.push_back(WithoutMark(file));
           },
           "also ask the rules of this text; repeatable")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->group(kRuleGroup);
    app.add_flag("--only", options.only_rule_files, "with --rules: leave the module's rules out")->group(kRuleGroup);
}

void AddSummaryOptions(CLI::App &app, ScanOptions &options) {
    app.add_flag("--summary", options.summary,
                 "print at the end for each rule how many files it matches, by folder or label, and the time it took")
        ->group(kRuleGroup);
    app.add_option_function<std::vector<std::string>>(
           kLabel,
           [&](const std::vector<std::string> &texts) {
               for (const std::string &text : texts)
                   options.labelled.push_back(RequireLabelled(WithoutMark(text)));
           },
           "scan PATH, and call it NAME in the summary; repeatable")
        ->type_name("NAME=PATH")
        ->allow_extra_args(false)
        ->group(kRuleGroup);
}

} // namespace tavrik::scanning
