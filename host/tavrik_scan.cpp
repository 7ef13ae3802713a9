// tavrik-scan: finds payloads in PE files with the module.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <vector>

#include "host/commands.h"
#include "host/locator_info.h"
#include "host/module.h"
#include "host/system.h"
#include "host/text.h"

namespace {

using namespace tavrik::host;

// The host's code for which the module has a clean action.
constexpr uint32_t kDefaultCleanCode = 7422;

constexpr char kDescription[] =
    "Scans PE files for installers, scripts and archives that they carry. Prints a line for each finding: file, entry "
    "of\n"
    "the locator table, kind, offset in the file, size. Files that are no PE files are passed over.";

constexpr char kFooter[] =
    "Exit codes:\n"
    "  0  nothing found\n"
    "  1  something found (explain: the entry finds its payload; clean-action: an action applies)\n"
    "  2  an error happened; it stands on standard error, and the other files were scanned all the same\n"
    "\n"
    "Examples:\n"
    "  tavrik-scan setup.exe                 scan one file\n"
    "  tavrik-scan -r --json Downloads       scan a folder, one JSON object a line\n"
    "  tavrik-scan explain 42 setup.exe      why does entry 42 not recognise this file?\n"
    "\n"
    "Inside folders symbolic links, devices and pipes are passed over. Name a file that is called like a command with "
    "its\n"
    "folder (./explain), and one that begins with a dash after --. Files of 2 GiB and more cannot be scanned.\n"
    "Characters of file names that could upset a terminal are shown as \\xNN.";

struct Values {
    std::string module;
    std::vector<std::string> paths;
    std::string file;
    uint32_t entry = 0;
    uint32_t rule_id = 0;
    uint32_t code = kDefaultCleanCode;
    bool recursive = false;
    bool json = false;
};

// The parser would take a file called "[a,b]" for a list of two. A NUL at its end, which no argument can have, keeps
// the name together.
std::string KeepTogether(std::string argument) {
    if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']')
        argument += '\0';
    return argument;
}

std::filesystem::path PathOfArgument(std::string argument) {
    if (!argument.empty() && argument.back() == '\0')
        argument.pop_back();
    return PathOf(argument);
}

class Formatter : public CLI::Formatter {
    std::string make_usage(const CLI::App *app, std::string name) const override {
        if (app->get_parent() != nullptr)
            return CLI::Formatter::make_usage(app, name);
        return "Usage: tavrik-scan [OPTIONS] PATH...\n"
               "       tavrik-scan [OPTIONS] explain ENTRY FILE\n"
               "       tavrik-scan locators\n"
               "       tavrik-scan [OPTIONS] clean-action RULE FILE\n";
    }
};

class CommandLine {
public:
    CommandLine() {
        // A path such as /var/tmp is no option, whatever the system.
        app_.allow_windows_style_options(false);
        app_.formatter(std::make_shared<Formatter>());
        app_.footer(kFooter);
        app_.require_subcommand(0, 1);
        app_.fallthrough();
        app_.add_option("PATH", values_.paths, "files to scan; with -r also folders")->type_name("");
        app_.add_flag("-r,--recursive", values_.recursive, "scan the files in folders and in the folders below");
        app_.add_flag("--json", values_.json, "print one JSON object for each file, errors included");
        app_.add_option("--module", values_.module, "the module to load (default: tavrik2.hbx beside this program)")
            ->type_name("FILE");

        explain_ = app_.add_subcommand("explain", "show what an entry asks for beside a file's values, and what fails");
        explain_->add_option("ENTRY", values_.entry, "entry of the locator table, 0 to 49")
            ->required()
            ->check(CLI::Range(0, LOCATOR_COUNT - 1))
            ->type_name("");
        explain_->add_option("FILE", values_.file, "PE file")->required()->type_name("");

        locators_ = app_.add_subcommand("locators", "list the entries of the locator table in words");

        clean_ = app_.add_subcommand("clean-action", "ask how to clean a file that a rule detected; changes nothing");
        clean_->add_option("RULE", values_.rule_id, "number of the rule; 147, 173 and 175 have actions")
            ->required()
            ->type_name("");
        clean_->add_option("FILE", values_.file, "the detected file")->required()->type_name("");
        clean_->add_option("--code", values_.code, "the host's code for what it found")
            ->capture_default_str()
            ->type_name("NUMBER");

        for (CLI::App *command : app_.get_subcommands({}))
            command->footer("");
    }

    ExitCode Run(std::vector<std::string> arguments) {
        // The parser takes them last first, without the program's name.
        arguments.erase(arguments.begin());
        std::reverse(arguments.begin(), arguments.end());
        std::transform(arguments.begin(), arguments.end(), arguments.begin(), KeepTogether);
        try {
            app_.parse(std::move(arguments));
        } catch (const CLI::ParseError &error) {
            return app_.exit(error) == 0 ? kNothingFound : kErrorHappened;
        }
        const bool has_command = !app_.get_subcommands().empty();
        if (has_command && !values_.paths.empty())
            return Refuse(fmt::format("\"{0}\" is the name of a command; name a file that is called so as ./{0}",
                                      app_.get_subcommands().front()->get_name()));
        if (!has_command && values_.paths.empty())
            return Refuse("name the files to scan");
        return Dispatch();
    }

private:
    static ExitCode Refuse(const std::string &reason) {
        fmt::print(stderr, "tavrik-scan: {}; run with --help for more information\n", reason);
        return kErrorHappened;
    }

    ExitCode Dispatch() const {
        const std::filesystem::path module =
            values_.module.empty() ? Module::DefaultPath() : PathOfArgument(values_.module);
        const std::filesystem::path file = PathOfArgument(values_.file);
        if (*explain_)
            return RunExplain(module, values_.entry, file);
        if (*locators_)
            return RunLocators();
        if (*clean_)
            return RunCleanAction(module, values_.rule_id, file, values_.code);
        ScanOptions options = {{}, values_.recursive, values_.json};
        for (const std::string &path : values_.paths)
            options.paths.push_back(PathOfArgument(path));
        return RunScan(module, options);
    }

    Values values_;
    CLI::App app_{kDescription, "tavrik-scan"};
    CLI::App *explain_ = nullptr;
    CLI::App *locators_ = nullptr;
    CLI::App *clean_ = nullptr;
};

} // namespace

int main(int argc, char **argv) {
    PrepareConsole();
    ExitCode code = kErrorHappened;
    try {
        code = CommandLine().Run(tavrik::host::Arguments(argc, argv));
        Print(""); // what is still buffered
    } catch (const std::exception &error) {
        fmt::print(stderr, "tavrik-scan: {}\n", error.what());
        return kErrorHappened;
    }
    return code;
}
