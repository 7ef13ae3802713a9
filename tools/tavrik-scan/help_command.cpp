#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/text.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace {

ExitCode PrintHelp(const CLI::App &app, const std::string &wanted) {
    if (wanted.empty()) {
        base::Print(app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
        return kNothingFound;
    }
    std::string names;
    for (const CLI::App *command : app.get_subcommands({})) {
        if (command->get_name() == wanted) {
            base::Print(command->help(app.get_name()));
            return kNothingFound;
        }
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    throw base::Error(fmt::format("there is no command \"{}\"; the commands are {}", base::Printable(wanted), names));
}

} // namespace

Command AddHelp(CLI::App &app, const ScanOptions &) {
    CLI::App *parser = app.add_subcommand("help", "print this text, or that of a command");
    const auto wanted = std::make_shared<std::string>();
    parser->add_option("COMMAND", *wanted, "the command")->type_name("");
    return {parser, [&app, wanted] { return PrintHelp(app, *wanted); }, {}};
}

} // namespace tavrik::scan_tool
