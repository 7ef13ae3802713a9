#include "tools/tavrik-scan/command_line.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <memory>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/module.h"
#include "tools/tavrik-scan/commands.h"
#include "tools/tavrik-scan/help.h"

namespace tavrik::scan_tool {

namespace {

constexpr unsigned kMostThreads = 256;
constexpr double kLongestTime = 1e9; // seconds; clocks count no more than 2^63 nanoseconds

// The parser would split a file name "[a,b]" into two. A NUL at its end, which no argument can contain, prevents that.
std::string MarkWhole(std::string argument) {
    if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']')
        argument += '\0';
    return argument;
}

std::string WithoutMark(std::string argument) {
    if (!argument.empty() && argument.back() == '\0')
        argument.pop_back();
    return argument;
}

std::filesystem::path PathOfArgument(const std::string &argument) {
    return base::PathOf(WithoutMark(argument));
}

// The line on standard error about a wrong command line.
std::string Refusal(const std::string &reason) {
    return fmt::format("tavrik-scan: {}; run with --help for more information\n", reason);
}

// For the parser: "" for a number of seconds, otherwise what is wrong.
std::string CheckTime(const std::string &text) {
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error == std::errc() && end == text.data() + text.size() && seconds > 0 && seconds <= kLongestTime)
        return "";
    return fmt::format("\"{}\" is not a valid time; write a number of seconds such as 30 or 0.5, at most 1e9",
                       base::Printable(text));
}

class Formatter : public CLI::Formatter {
    std::string make_usage(const CLI::App *app, std::string name) const override {
        return app->get_parent() != nullptr ? CLI::Formatter::make_usage(app, name) : kHelpUsage;
    }
};

class CommandLine {
public:
    CommandLine() {
        // A path such as /var/tmp is not an option on any system.
        app_.allow_windows_style_options(false);
        app_.formatter(std::make_shared<Formatter>());
        app_.footer(kHelpFooter);
        app_.require_subcommand(0, 1);
        app_.failure_message([](const CLI::App *, const CLI::Error &error) { return Refusal(error.what()); });
        app_.fallthrough();
        app_.add_option("PATH", paths_, "files to scan; with -r also folders")->type_name("");
        AddInputOptions();
        AddWorkOptions();
        AddOutputOptions();
        AddCommands();
    }

    int Run(std::vector<std::string> arguments) {
        // The parser takes them last first, without the program's name.
        arguments.erase(arguments.begin());
        std::reverse(arguments.begin(), arguments.end());
        std::transform(arguments.begin(), arguments.end(), arguments.begin(), MarkWhole);
        try {
            app_.parse(std::move(arguments));
        } catch (const CLI::ParseError &error) {
            return app_.exit(error) == 0 ? kNothingFound : kErrorHappened;
        }
        const bool has_command = !app_.get_subcommands().empty();
        if (has_command && !paths_.empty())
            return Refuse(fmt::format("\"{0}\" is the name of a command; write a file of that name as ./{0}",
                                      app_.get_subcommands().front()->get_name()));
        if (!has_command && paths_.empty() && path_list_.empty())
            return Refuse("name the files to scan");
        if (is_null_separated_ && path_list_.empty())
            return Refuse("-0 needs the list of --files-from");
        if (scan_.settings.sha256 && !scan_.json)
            return Refuse("--sha256 is in JSON only; add --json");
        return Dispatch();
    }

private:
    void AddInputOptions() {
        const char *group = "Which files";
        app_.add_flag("-r,--recursive", scan_.walk.recursive, "scan the files in folders and their subfolders")
            ->group(group);
        app_.add_option("--files-from", path_list_, "scan the paths in LIST, one per line; - is standard input")
            ->type_name("LIST")
            ->group(group);
        app_.add_flag("-0,--null", is_null_separated_, "the paths in LIST end with NUL (find -print0)")->group(group);
        app_.add_option("--exclude", exclude_,
                        "leave out files and folders whose name, or path if PATTERN contains /, matches; *, ? and "
                        "[a-z] are wildcards; repeatable")
            ->type_name("PATTERN")
            ->allow_extra_args(false)
            ->group(group);
        app_.add_option_function<std::string>(
                "--max-size",
                [this](const std::string &text) {
                    scan_.settings.max_size = ParseSize(text);
                    if (!scan_.settings.max_size)
                        throw CLI::ValidationError("--max-size",
                                                   "\"" + base::Printable(text) +
                                                       "\" is not a valid size; write it like 500K, 10M or 2G");
                },
                "skip larger files; in bytes, or with K, M or G")
            ->type_name("SIZE")
            ->group(group);
    }

    void AddWorkOptions() {
        const char *group = "What is done";
        scan_.threads = std::clamp(std::thread::hardware_concurrency(), 1u, kMostThreads);
        app_.add_option("-j,--jobs", scan_.threads,
                        "number of files that are scanned at once (default: one for each processor)")
            ->check(CLI::Range(1u, kMostThreads).description(""))
            ->type_name("N")
            ->group(group);
        app_.add_option("--timeout", scan_.settings.timeout, "stop scanning a file after this time, which is an error")
            ->check(CLI::Validator(CheckTime, ""))
            ->type_name("SECONDS")
            ->group(group);
        app_.add_flag("--sha256", scan_.settings.sha256, "add the SHA-256 of each file to its JSON")->group(group);
        app_.add_option("--carve", carve_folder_, "write located payloads to new files in the folder DIR")
            ->type_name("DIR")
            ->group(group);
        app_.add_option("--module", module_, "the module to load (default: tavrik2.hbx in this program's folder)")
            ->type_name("FILE")
            ->group(group);
    }

    void AddOutputOptions() {
        const char *group = "What is shown";
        const std::map<std::string, base::When> words = {
            {"auto", base::When::Auto}, {"always", base::When::Always}, {"never", base::When::Never}};
        const auto add_when = [&](const char *name, base::When &value, const char *about) {
            app_.add_option(name, value, about)
                ->transform(CLI::CheckedTransformer(words).description(""))
                ->type_name("auto|always|never")
                ->group(group);
        };
        app_.add_flag("--json", scan_.json, "print one JSON object for each file, including errors")->group(group);
        app_.add_flag("-q,--quiet", scan_.quiet, "no progress line and no summary")->group(group);
        app_.add_flag("--profile", scan_.profile, "print at the end how much time the steps and the rules took")
            ->group(group);
        add_when("--color", scan_.colour, "colours (auto: on terminals, unless NO_COLOR is set)");
        add_when("--progress", scan_.progress, "a line that shows the progress (auto: on terminals)");
    }

    void AddCommands() {
        explain_ =
            app_.add_subcommand("explain", "show the conditions of a rule or an entry next to the values of a file");
        explain_
            ->add_option(
                "WHAT", what_,
                "rule:ID, entry:N (0 to 49), a number for both, or a detection's name such as Worm.Autorun.LD4")
            ->required()
            ->type_name("");
        explain_->add_option("FILE", file_, "PE file")->required()->type_name("");

        locators_ = app_.add_subcommand("locators", "list the entries of the locator table");

        clean_ = app_.add_subcommand("clean-action", "show how to clean a file that a rule detected; changes nothing");
        clean_->add_option("RULE", rule_id_, "number of the rule; 147, 173 and 175 have actions")
            ->required()
            ->type_name("");
        clean_->add_option("FILE", file_, "the detected file")->required()->type_name("");
        clean_->add_option("--code", code_, "the host's code for what it found")
            ->capture_default_str()
            ->type_name("NUMBER");

        for (CLI::App *command : app_.get_subcommands({}))
            command->footer("");
    }

    static ExitCode Refuse(const std::string &reason) {
        base::PrintError(Refusal(reason));
        return kErrorHappened;
    }

    int Dispatch() {
        const std::filesystem::path module = module_.empty() ? scanner::Module::DefaultPath() : PathOfArgument(module_);
        const std::filesystem::path file = PathOfArgument(file_);
        if (*explain_)
            return RunExplain(module, WithoutMark(what_), file);
        if (*locators_)
            return RunLocators();
        if (*clean_)
            return RunCleanAction(module, rule_id_, file, code_);
        for (const std::string &path : paths_)
            scan_.paths.push_back(PathOfArgument(path));
        for (const std::string &pattern : exclude_)
            scan_.walk.exclude.push_back(WithoutMark(pattern));
        if (!path_list_.empty())
            scan_.path_list = PathOfArgument(path_list_);
        if (is_null_separated_)
            scan_.list_separator = '\0';
        if (!carve_folder_.empty())
            scan_.carve_folder = PathOfArgument(carve_folder_);
        return RunScan(module, scan_);
    }

    CLI::App app_{kHelpDescription, "tavrik-scan"};
    CLI::App *explain_ = nullptr;
    CLI::App *locators_ = nullptr;
    CLI::App *clean_ = nullptr;

    ScanOptions scan_;
    std::string module_;
    std::vector<std::string> paths_;
    std::vector<std::string> exclude_;
    std::string path_list_;
    std::string carve_folder_;
    bool is_null_separated_ = false;
    std::string what_;
    std::string file_;
    uint32_t rule_id_ = 0;
    uint32_t code_ = scanner::kCleanableFinding;
};

} // namespace

int RunCommandLine(std::vector<std::string> arguments) {
    return CommandLine().Run(std::move(arguments));
}

std::optional<uint64_t> ParseSize(const std::string &text) {
    uint64_t number = 0;
    const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc())
        return std::nullopt;
    const std::string_view unit(stopped, static_cast<std::size_t>(text.data() + text.size() - stopped));
    if (unit.empty())
        return number;
    constexpr std::string_view kUnits = "KMG"; // each 1024 of the one before
    const std::size_t power = kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit[0]))));
    if (unit.size() != 1 || power == std::string_view::npos)
        return std::nullopt;
    const unsigned shift = 10 * (static_cast<unsigned>(power) + 1);
    return number > std::numeric_limits<uint64_t>::max() >> shift ? std::nullopt : std::optional(number << shift);
}

} // namespace tavrik::scan_tool
