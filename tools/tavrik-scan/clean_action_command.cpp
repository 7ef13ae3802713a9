#include <memory>
#include <string>

#include <fmt/format.h>

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/module.h"
#include "tools/tavrik-scan/arguments.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

ExitCode RunCleanAction(const fs::path &module_path, uint32_t rule_id, const fs::path &file, uint32_t code) {
    const scanner::Module module(module_path);
    const scanner::CleanDecision decision = module.AskCleanAction(file, code, rule_id);
    const std::string answer =
        decision.action == CLEAN_ACTION_NONE
            ? "no action"
            : fmt::format("action {}: {}", decision.action, scanner::ActionMeaning(decision.action));
    base::Print(fmt::format("{}: rule {}, code {}: result {}, {}\n", base::PrintablePath(file), rule_id, code,
                            decision.applies ? 1 : 0, answer));
    if (decision.action == CLEAN_ACTION_CANNOT_OPEN) {
        ReportError(file, "cannot be opened for reading and writing; check its name and its permissions");
        return kErrorHappened;
    }
    return decision.applies ? kFound : kNothingFound;
}

struct Arguments {
    uint32_t rule = 0;
    std::string file;
    uint32_t code = scanner::kCleanableFinding;
};

} // namespace

Command AddCleanAction(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser =
        app.add_subcommand("clean-action", "show how to clean a file that a rule detected; changes nothing");
    const auto arguments = std::make_shared<Arguments>();
    parser->add_option("RULE", arguments->rule, "number of the rule; 147, 173 and 175 have actions")
        ->required()
        ->type_name("");
    parser->add_option("FILE", arguments->file, "the detected file")->required()->type_name("");
    parser->add_option("--code", arguments->code, "the host's code for what it found")
        ->capture_default_str()
        ->type_name("NUMBER");
    const auto run = [arguments, &options] {
        return RunCleanAction(options.module, arguments->rule, PathOfArgument(arguments->file), arguments->code);
    };
    return {parser, run, {"--module"}};
}

} // namespace tavrik::scan_tool
