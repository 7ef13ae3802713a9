#include <algorithm>
#include <filesystem>

#include "base/error.h"
#include "base/text.h"
#include "tools/scanning/scan_run.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

namespace {

constexpr std::string_view kRuleSuffix = ".rules";

bool NamesRules(const std::string &argument) {
    return argument.ends_with(kRuleSuffix) && !std::filesystem::is_directory(base::PathOf(argument));
}

} // namespace

int Try(TryOptions options) {
    scanning::ScanOptions &run = options.run;
    for (const std::string &argument : options.arguments)
        if (NamesRules(argument))
            run.rule_files.push_back(argument);
        else
            run.paths.push_back(base::PathOf(argument));
    if (run.rule_files.empty())
        throw base::Error("try: no rule files; name one that ends in .rules, or use --rules FILE");
    if (run.paths.empty() && run.labelled.empty() && !run.path_list)
        throw base::Error("try: nothing to try the rules on; name files, or folders with -r");
    if (const std::string conflict = scanning::ScanConflict(run); !conflict.empty())
        throw base::Error("try: " + conflict);
    try {
        const int code = scanning::RunScan(run);
        return code >= scanning::kSignalled ? code : code == scanning::kErrorHappened ? int{kFailed} : int{kFine};
    } catch (const scanning::BadRules &) {
        return kErrorsFound; // they have been printed
    }
}

} // namespace tavrik::rules_tool
