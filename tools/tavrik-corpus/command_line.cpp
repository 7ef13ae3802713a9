#include "tools/tavrik-corpus/command_line.h"

#include <algorithm>
#include <optional>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/program.h"
#include "base/text.h"
#include "base/version.h"
#include "scanner/module.h"
#include "store/layout.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

namespace {

constexpr unsigned kMostThreads = 256;

constexpr char kFooter[] =
    "Exit codes:\n"
    "  0  done; hunt: no rule matches\n"
    "  1  hunt: a rule matches; add, merge: files were set aside; forget, values: there is nothing\n"
    "  2  wrong usage, or a store, module or file that cannot be read or written\n"
    "  128 plus a signal's number: ended by that signal, for example 130 after Ctrl-C\n"
    "\n"
    "A store is one file. While one program changes it, others have to wait.\n";

std::string VersionText() {
    return base::VersionText("tavrik-corpus",
                             fmt::format("{}, store format {}, extractor {}", base::JsonLibraryVersion(),
                                         store::kFormatVersion, store::kExtractorVersion));
}

class CommandLine {
public:
    CommandLine() {
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.set_version_flag("--version", VersionText, "print the versions, and exit");
        app_.failure_message([](const CLI::App *, const CLI::Error &error) {
            return fmt::format("tavrik-corpus: {}; run with --help for more information\n", error.what());
        });
        app_.footer(kFooter);
        const unsigned cores = std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
        add_options_.threads = cores;
        hunt_options_.threads = cores;
        hunt_options_.module = scanner::Module::DefaultPath();
        AddAdd();
        AddHunt();
        AddReaders();
        AddChanges();
    }

    int Run(std::vector<std::string> arguments) {
        if (const std::optional<int> code = base::ParseCommandLine(app_, std::move(arguments), kFailed))
            return *code;
        const CLI::App *const command = app_.get_subcommands().front();
        const std::filesystem::path store = base::PathOf(store_);
        add_options_.store = hunt_options_.store = store;
        if (command == add_) {
            if (add_options_.paths.empty() && add_options_.list.empty())
                throw base::Error("add: nothing to add; name files or folders, or use --files-from");
            return Add(add_options_);
        }
        if (command == hunt_)
            return RunHunt(hunt_options_);
        if (command == stats_)
            return Stats(store, stats_options_);
        if (command == values_)
            return Values(store, field_, most_, json_);
        if (command == verify_)
            return Verify(store);
        if (command == forget_)
            return ForgetPaths(store, others_);
        if (command == merge_)
            return Merge(store, others_);
        return Export(store, format_, output_);
    }

private:
    CLI::App *Command(const char *name, const char *about) {
        CLI::App *command = app_.add_subcommand(name, about);
        command->add_option("STORE", store_, "the store's file")->required()->type_name("");
        return command;
    }

    static void AddThreads(CLI::App *command, unsigned &threads) {
        command->add_option("-j,--jobs", threads, "threads (default: one for each core)")
            ->check(CLI::Range(1U, kMostThreads))
            ->type_name("N");
    }

    void AddAdd() {
        add_ = Command("add", "extract the features of files that are new or have changed");
        add_->add_option("PATH", add_options_.paths, "files, and folders with all that is below them")->type_name("");
        add_->add_option("--files-from", add_options_.list,
                         "add the files named in FILE, one a line; - is standard input")
            ->type_name("FILE");
        add_->add_option("--exclude", add_options_.exclude, "leave out files and folders that match; may be repeated")
            ->type_name("PATTERN")
            ->allow_extra_args(false);
        CLI::Option *none = add_->add_flag("--no-digests", add_options_.no_digests,
                                           "compute no SHA-256, so that files need not be read to their end");
        add_->add_flag("--digests", add_options_.digests,
                       "compare the SHA-256 of files whose size and time are the same")
            ->excludes(none);
        add_->add_option("--commit-every", add_options_.commit_every,
                         "files whose work is lost at most when the program is killed (default: 8192)")
            ->check(CLI::Range(std::size_t{1}, std::size_t{1'000'000}))
            ->type_name("N");
        add_->add_flag("--retry", add_options_.retry,
                       "read files again that were set aside because reading them ended the program");
        add_->add_flag("-q,--quiet", add_options_.quiet, "say nothing about files that are set aside");
        AddThreads(add_, add_options_.threads);
        add_->footer("A run that was ended goes on where it was when it is started again.\n");
    }

    void AddHunt() {
        hunt_ = Command("hunt", "evaluate rules on all files of the store");
        hunt_
            ->add_option("--rules", hunt_options_.rules,
                         "a file with rules; may be repeated (default: the module's own rules)")
            ->type_name("FILE")
            ->allow_extra_args(false);
        hunt_
            ->add_option_function<std::string>(
                "--module", [this](const std::string &path) { hunt_options_.module = base::PathOf(path); },
                "the module with the rules (default: the one that belongs to this program)")
            ->type_name("MODULE");
        hunt_->add_flag("--with-module", hunt_options_.with_module, "with --rules: evaluate the module's rules too");
        hunt_->add_flag("--no-open", hunt_options_.no_open, "open no file; name those that must be looked at");
        hunt_->add_flag("--summary", hunt_options_.summary, "print a line for each rule, not for each file");
        hunt_->add_flag("--json", hunt_options_.json, "print JSON objects, one a line");
        AddThreads(hunt_, hunt_options_.threads);
    }

    void AddReaders() {
        stats_ = Command("stats", "count files, and bytes a file");
        stats_->add_flag("--fields", stats_options_.fields,
                         "print a line for each header value: files, values, the most common");
        stats_->add_flag("--set-aside", stats_options_.set_aside,
                         "print a line for each file that could not be read, with the reason");
        stats_->add_flag("--json", stats_options_.json, "print JSON objects, one a line");
        values_ = Command("values", "count the files that have each value of a field");
        values_->add_option("FIELD", field_, "a header value, or a field of a section such as section[0].Name")
            ->required()
            ->type_name("");
        values_->add_option("--top", most_, "print the N most common (default: 20)")->type_name("N");
        values_->add_flag("--json", json_, "print JSON objects, one a line");
        verify_ = Command("verify", "read all of the store, and check it");
        export_ = Command("export", "write identity and header values of all files");
        export_
            ->add_option_function<std::string>(
                "--format",
                [this](const std::string &word) {
                    if (word != "csv" && word != "jsonl")
                        throw CLI::ValidationError("--format",
                                                   fmt::format("'{}' is none of csv, jsonl", base::Printable(word)));
                    format_ = word == "csv" ? ExportFormat::Csv : ExportFormat::JsonLines;
                },
                "csv (default), or jsonl: an object a line")
            ->type_name("csv|jsonl");
        export_->add_option("-o,--output", output_, "file to write (default: standard output)")->type_name("FILE");
    }

    void AddChanges() {
        forget_ = Command("forget", "take files out of the store");
        forget_->add_option("PATH", others_, "files, and folders with all that is below them")
            ->required()
            ->type_name("");
        merge_ = Command("merge", "add what other stores have");
        merge_->add_option("OTHER", others_, "other stores; of a file in several the newer counts")
            ->required()
            ->type_name("");
    }

    CLI::App app_{"Keeps the features of many files, and answers rules from them.", "tavrik-corpus"};
    CLI::App *add_;
    CLI::App *hunt_;
    CLI::App *stats_;
    CLI::App *values_;
    CLI::App *verify_;
    CLI::App *export_;
    CLI::App *forget_;
    CLI::App *merge_;
    std::string store_;
    AddOptions add_options_;
    HuntOptions hunt_options_;
    StatsOptions stats_options_;
    bool json_ = false;
    std::string field_;
    std::size_t most_ = 20;
    ExportFormat format_ = ExportFormat::Csv;
    std::string output_;
    std::vector<std::string> others_;
};

} // namespace

int RunCommandLine(std::vector<std::string> arguments) {
    return CommandLine().Run(std::move(arguments));
}

} // namespace tavrik::corpus_tool
