#include "tools/tavrik-scan/command_line.h"

#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/program.h"
#include "base/sandbox.h"
#include "base/version.h"
#include "scanner/identity.h"
#include "scanner/module.h"
#include "scanner/payloads/libraries.h"
#include "tools/scanning/arguments.h"
#include "tools/tavrik-scan/commands.h"
#include "tools/tavrik-scan/help.h"

namespace tavrik::scan_tool {

namespace {

// The line on standard error about a wrong command line.
std::string Refusal(const std::string &reason) {
    return fmt::format("tavrik-scan: {}; run with --help for more information\n", reason);
}

class Formatter : public CLI::Formatter {
    std::string make_usage(const CLI::App *app, std::string name) const override {
        return app->get_parent() != nullptr ? CLI::Formatter::make_usage(app, name) : kHelpUsage;
    }
};

// Which of the program's options a command takes.
std::string FooterOf(const Command &command) {
    std::string names = "--quiet, --no-sandbox";
    for (const std::string &name : command.options)
        names += ", " + name;
    return fmt::format("Also takes {} of the options that tavrik-scan --help lists.\n", names);
}

class CommandLine {
public:
    CommandLine() {
        options_.module = scanner::Module::DefaultPath();
        // A path such as /var/tmp is not an option on any system.
        app_.allow_windows_style_options(false);
        app_.formatter(std::make_shared<Formatter>());
        app_.footer(kHelpFooter);
        app_.require_subcommand(0, 1);
        app_.failure_message([](const CLI::App *, const CLI::Error &error) { return Refusal(error.what()); });
        app_.fallthrough();
        app_.add_option("PATH", paths_, "files to scan, - being standard input; with -r also folders")->type_name("");
        app_.add_flag("--version", print_version_, "print the versions and digests, and exit");
        using namespace scanning;
        for (const auto add : {AddInputOptions, AddRuleOptions, AddSummaryOptions, AddWorkOptions, AddModuleOptions,
                               AddPayloadOptions, AddInsideOptions, AddNearOptions, AddOutputOptions})
            add(app_, options_);
        for (const auto add : {AddExplain, AddMap, AddContents, AddUnpack, AddLocators, AddCleanAction, AddHelp}) {
            commands_.push_back(add(app_, options_));
            commands_.back().parser->footer(FooterOf(commands_.back()));
        }
    }

    int Run(std::vector<std::string> arguments) {
        options_.command_line = arguments;
        scanning::JoinNear(arguments);
        std::transform(arguments.begin(), arguments.end(), arguments.begin(), scanning::MarkWhole);
        if (const std::optional<int> code = base::ParseCommandLine(app_, std::move(arguments), kErrorHappened))
            return *code;
        if (print_version_)
            return PrintVersion();
        for (const Command &command : commands_)
            if (command.parser->parsed())
                return RunCommand(command);
        for (const std::string &path : paths_)
            options_.paths.push_back(scanning::PathOfArgument(path));
        const std::string conflict = scanning::ScanConflict(options_);
        return conflict.empty() ? scanning::RunScan(options_) : Refuse(conflict);
    }

private:
    int RunCommand(const Command &command) const {
        const std::string name = command.parser->get_name();
        if (!paths_.empty())
            return Refuse(fmt::format("\"{0}\" is the name of a command; write a file of that name as ./{0}", name));
        for (const CLI::Option *option : app_.get_options()) {
            const auto is_called = [&](const std::string &taken) { return option->check_name(taken); };
            const bool is_taken =
                is_called("--quiet") || is_called("--no-sandbox") || std::ranges::any_of(command.options, is_called);
            if (option->count() > 0 && !is_taken)
                return Refuse(fmt::format("{} does not take the option {}", name, option->get_name()));
        }
        if (options_.only_rule_files && options_.rule_files.empty())
            return Refuse("--only needs --rules");
        return command.run();
    }

    // Also without a module, so that it can be told what is wrong.
    ExitCode PrintVersion() const {
        std::string text = base::VersionText("tavrik-scan", scanner::payloads::LibraryVersions());
        text += fmt::format("sandbox: {}\n", base::SandboxSupport());
        ExitCode code = kNothingFound;
        try {
            text += scanner::IdentityText(scanner::IdentityOf(scanner::Module(*options_.module)));
        } catch (const base::Error &error) {
            text += fmt::format("module: {}\n", error.what());
            code = kErrorHappened;
        }
        base::Print(text);
        return code;
    }

    static ExitCode Refuse(const std::string &reason) {
        base::PrintError(Refusal(reason));
        return kErrorHappened;
    }

    CLI::App app_{kHelpDescription, "tavrik-scan"};
    ScanOptions options_;
    std::vector<std::string> paths_;
    std::vector<Command> commands_;
    bool print_version_ = false;
};

} // namespace

int RunCommandLine(std::vector<std::string> arguments) {
    return CommandLine().Run(std::move(arguments));
}

} // namespace tavrik::scan_tool
