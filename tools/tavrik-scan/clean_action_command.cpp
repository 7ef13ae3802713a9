#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/inspection.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-scan/commands.h"
#include "tools/tavrik-scan/subjects.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

// Whether one of the rules matches the file. Throws base::Error when that cannot be said.
bool AnyMatches(const scanner::Scanner &scanner, const std::vector<const HeuristicRule *> &rules,
                const fs::path &file) {
    base::FileSource source(file);
    scanner::Inspection inspection(scanner, source);
    inspection.RequirePe(file, "rules are about PE files only");
    bool matches = false;
    for (const HeuristicRule *rule : rules)
        matches = matches || inspection.Matches(*rule);
    inspection.RequireRead(file);
    return matches;
}

ExitCode RunCleanAction(const ScanOptions &options, std::string what, std::string name, uint32_t code) {
    const std::unique_ptr<const scanner::Scanner> scanner = scanning::MakeScanner(options, options.settings);
    PutInOrder(*scanner, what, name);
    const std::vector<const HeuristicRule *> rules = RulesOf(*scanner, what);
    const fs::path file = base::PathOf(name);
    scanning::Confine(options, {file}, {file}); // which is opened for writing
    const uint32_t rule_id = rules.front()->rule_id;
    const auto print = [&](const std::string &answer) {
        base::Print(fmt::format("{}: rule {} \"{}\" {}\n", base::PrintablePath(file), rule_id,
                                base::Printable(scanner::DetectionName(*rules.front())), answer));
    };
    if (!AnyMatches(*scanner, rules, file)) {
        print(fmt::format("does not match, so that nothing is to be cleaned; tavrik-scan explain rule:{} shows why",
                          rule_id));
        return kNothingFound;
    }
    const scanner::CleanDecision decision = scanner->module()->AskCleanAction(file, code, rule_id);
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its permissions");
        return kErrorHappened;
    }
    const std::string action =
        decision.action == CLEAN_ACTION_NONE
            ? "the module has no action for it"
            : fmt::format("action {} ({}): {}", decision.action, scanner::ActionName(decision.action),
                          scanner::ActionMeaning(decision.action));
    print(fmt::format("matches; code {}: {}", code, action));
    return decision.applies && !options.exit_zero ? kFound : kNothingFound;
}

struct CleanActionArguments {
    std::string rule;
    std::string file;
    uint32_t code = scanner::kCleanableFinding;
};

} // namespace

Command AddCleanAction(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser = app.add_subcommand(
        "clean-action", "show how to clean a file that a rule matches; the file is opened for writing, never changed");
    const auto arguments = std::make_shared<CleanActionArguments>();
    parser->add_option("RULE", arguments->rule, "the rule as 173, rule:173 or its name; 147, 173 and 175 have actions")
        ->required()
        ->type_name("");
    parser->add_option("FILE", arguments->file, "the detected file")->required()->type_name("");
    parser->add_option("--code", arguments->code, "the host's code for what it found")
        ->capture_default_str()
        ->type_name("NUMBER");
    const auto run = [arguments, &options] {
        return RunCleanAction(options, scanning::WithoutMark(arguments->rule), scanning::WithoutMark(arguments->file),
                              arguments->code);
    };
    return {parser, run, {"--module", "--exit-zero"}};
}

} // namespace tavrik::scan_tool
