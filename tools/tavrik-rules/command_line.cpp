#include "tools/tavrik-rules/command_line.h"

#include <map>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/program.h"
#include "base/sha256.h"
#include "base/text.h"
#include "base/version.h"
#include "rules/record/reader.h"
#include "rules/text/digest.h"

namespace tavrik::rules_tool {

namespace {

constexpr char kFooter[] =
    "Exit codes:\n"
    "  0  fine\n"
    "  1  errors in the rules; fmt --check: files that would change; stats --verify: deviations;\n"
    "     show, specimen: no such rule\n"
    "  2  check: warnings, but no errors; draft: it matches files of the corpus\n"
    "  3  wrong usage, or a file or module that cannot be read or written (try goes on with the other\n"
    "     files; whether rules match does not count)\n"
    "\n"
    "dump, stats, list, show and export-yara take rule files, or the module's own rules without any. The file\n"
    "'-' is standard input.";

// With the module beside the program, where there is one.
std::string VersionText() {
    std::string text = base::VersionText("tavrik-rules", base::JsonLibraryVersion());
    try {
        const StoredModule module("");
        base::FileSource file(module.path());
        text += fmt::format("module: {}, SHA-256 {}\n", base::PrintablePath(module.path()), base::Sha256Of(file));
        text += rules::text::DatabaseLine(rules::record::ReadRules(module.table(), rules::record::RecordForm::Stored));
    } catch (const base::Error &error) {
        text += fmt::format("module: {}\n", error.what());
    }
    return text;
}

class CommandLine {
public:
    CommandLine() {
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.set_version_flag("--version", VersionText, "print the versions and digests, and exit");
        app_.failure_message([](const CLI::App *app, const CLI::Error &error) {
            const bool is_command_wrong = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) &&
                                          app->get_subcommands().empty() && !app->remaining().empty();
            const std::string reason =
                is_command_wrong ? fmt::format("there is no command '{}'", app->remaining().front()) : error.what();
            return fmt::format("tavrik-rules: {}; run with --help for more information\n", reason);
        });
        app_.footer(kFooter);

        AddTextCommands();
        AddReaders();
        AddTry();
        AddDrafts();
        AddSpecimen();
        AddExport();
    }

    int Run(std::vector<std::string> arguments) {
        if (const std::optional<int> code = base::ParseCommandLine(app_, std::move(arguments), kFailed))
            return *code;
        const CLI::App *const command = app_.get_subcommands().front();
        const RuleSource source{files_, module_};
        if (command == check_)
            return Check(files_, check_format_);
        if (command == compile_)
            return Compile(files_, base::PathOf(folder_));
        if (command == format_)
            return Format(files_, check_only_);
        if (command == dump_)
            return Dump(source);
        if (command == stats_)
            return Stats(source, verify_, json_);
        if (command == list_)
            return List(source, json_);
        if (command == try_)
            return Try(try_options_);
        if (command == values_)
            return Values(files_);
        if (command == draft_)
            return MakeDraft(draft_options_);
        if (command == specimen_)
            return WriteSpecimen(specimen_options_);
        if (command == export_)
            return ExportToYara(source, output_, report_);
        return Show(source, wanted_);
    }

private:
    void AddTextCommands() {
        check_ = Add("check", "report every error and warning in rule files");
        AddFiles(check_, true);
        const std::map<std::string, CheckFormat> formats = {
            {"text", CheckFormat::Text}, {"json", CheckFormat::JsonLines}, {"sarif", CheckFormat::Sarif}};
        check_
            ->add_option_function<std::string>(
                "--format",
                [this, formats](const std::string &word) {
                    const auto format = formats.find(word);
                    if (format == formats.end())
                        throw CLI::ValidationError(
                            "--format", fmt::format("'{}' is none of text, json, sarif", base::Printable(word)));
                    check_format_ = format->second;
                },
                "text (default), json: an object for each finding, sarif: SARIF 2.1.0 for editors and code reviews")
            ->type_name("text|json|sarif");
        check_->add_flag_callback(
            "--json", [this] { check_format_ = CheckFormat::JsonLines; }, "the same as --format json");

        compile_ = Add("compile", "compile rule files to the source of the module's database");
        AddFiles(compile_, true);
        compile_->add_option("-o,--output", folder_, "folder to write to; it is made if need be")
            ->required()
            ->type_name("DIR");

        format_ = Add("fmt", "lay rule files out in canonical form, comments kept, in place");
        AddFiles(format_, true);
        format_->add_flag("--check", check_only_, "change nothing; list the files that would change");
    }

    void AddReaders() {
        dump_ = AddReader("dump", "print rules as canonical text");
        stats_ = AddReader("stats", "count lists and elements");
        stats_->add_flag("--verify", verify_, "show each fact of the published profile, expected and actual");
        stats_->add_flag("--json", json_, "with --verify: print one JSON object for each fact");
        list_ = AddReader("list", "print a line for each rule");
        list_->add_flag("--json", json_, "print one JSON object for each rule");
        show_ = Add("show", "print the rules with a number or with a part of a name");
        show_->add_option("WANTED", wanted_, "number of a rule, or part of a name")->required()->type_name("");
        AddSource(show_);
    }

    void AddTry() {
        try_ = Add("try", "evaluate rule files on PE files, without building a module");
        try_->add_option("RULES... PATH", try_options_.arguments,
                         "files that end in .rules are rules; the others are tried, folders with -r")
            ->type_name("");
        scanning::ScanOptions &run = try_options_.run;
        run.program = "tavrik-rules";
        run.settings.inside = false;
        try_->add_option("--rules", run.rule_files, "a rule file of any name; may be repeated")
            ->type_name("FILE")
            ->allow_extra_args(false);
        try_->add_flag("-v,--explain", run.explain, "for each rule, print its conditions, met or not");
        for (const auto add : {scanning::AddSummaryOptions, scanning::AddInputOptions, scanning::AddWorkOptions,
                               scanning::AddInsideOptions, scanning::AddOutputOptions})
            add(*try_, run);
        try_->footer(
            fmt::format("Prints what tavrik-scan prints with --rules and --only; no module is loaded, so that no\n"
                        "locator and no clean action is asked.\n\n{}",
                        kFooter));
    }

    void AddDrafts() {
        values_ = Add("values", "print everything that a rule could ask of files, as one rule");
        values_->add_option("FILE", files_, "PE files; of several, what they share")->required()->type_name("");
        draft_ = Add("draft", "make a rule that files match");
        draft_->add_option("FILE", draft_options_.files, "PE files that the rule matches")->required()->type_name("");
        draft_
            ->add_option("--not", draft_options_.corpus,
                         "files that it must not match: a folder with all below it, a list of files and folders, a "
                         "path a line ('-': standard input), or a store of tavrik-corpus; may be repeated")
            ->type_name("FOLDER|LIST|STORE")
            ->allow_extra_args(false);
        draft_->add_option("--name", draft_options_.name, "the detection name (default: Draft)")->type_name("NAME");
        draft_->add_option("--id", draft_options_.rule_id, "the rule's id (default: 1)")->type_name("N");
        draft_->footer(
            "After each condition comes how many files of the corpus meet it, and how many are left with those\n"
            "that were chosen before. Standard error says which files the draft matches all the same.\n");
    }

    void AddSpecimen() {
        specimen_ = Add("specimen", "write a PE file that a rule of the reference database matches");
        specimen_->add_option("ID", specimen_options_.rule_id, "id of the rule, as list prints it")
            ->required()
            ->type_name("");
        specimen_->add_option("-o,--output", specimen_options_.output, "file to write")->required()->type_name("FILE");
        specimen_->add_option("--place", specimen_options_.place, "place in the table, where several rules have the id")
            ->type_name("N");
        specimen_->add_flag("--force", specimen_options_.force, "overwrite the file");
        specimen_->footer(
            "The reference database is built into this program: a module made from other rules, or other\n"
            "--module files, change nothing here. Specimens are invented and harmless; scanners that use\n"
            "the database report them.\n");
    }

    void AddExport() {
        export_ = AddReader("export-yara", "write rules for YARA, those that it can express exactly");
        export_->add_option("-o,--output", output_, "file to write (default: standard output)")->type_name("FILE");
        export_->add_option("--report", report_, "file for the other rules: id, name, reason, with tabs between")
            ->type_name("FILE");
        export_->footer("Standard error says how many rules were written, and how many not for each reason.\n");
    }

    CLI::App *Add(const char *name, const char *about) { return app_.add_subcommand(name, about); }

    CLI::App *AddReader(const char *name, const char *about) {
        CLI::App *command = Add(name, about);
        AddSource(command);
        return command;
    }

    void AddFiles(CLI::App *command, bool required) {
        command->add_option("FILE", files_, "rule files")->required(required)->type_name("");
    }

    void AddSource(CLI::App *command) {
        AddFiles(command, false);
        command->add_option("--module", module_, "the module to read (default: tavrik2.hbx beside this program)")
            ->type_name("MODULE");
    }

    CLI::App app_{"Checks, compiles, formats, shows and tries heuristic rules.", "tavrik-rules"};
    CLI::App *check_;
    CLI::App *compile_;
    CLI::App *format_;
    CLI::App *dump_;
    CLI::App *stats_;
    CLI::App *list_;
    CLI::App *show_;
    CLI::App *try_;
    CLI::App *values_;
    CLI::App *draft_;
    CLI::App *specimen_;
    CLI::App *export_;
    std::vector<std::string> files_;
    std::string folder_;
    std::string module_;
    std::string wanted_;
    std::string output_;
    std::string report_;
    TryOptions try_options_;
    DraftOptions draft_options_;
    SpecimenOptions specimen_options_;
    CheckFormat check_format_ = CheckFormat::Text;
    bool json_ = false;
    bool check_only_ = false;
    bool verify_ = false;
};

} // namespace

int RunCommandLine(std::vector<std::string> arguments) {
    return CommandLine().Run(std::move(arguments));
}

} // namespace tavrik::rules_tool
