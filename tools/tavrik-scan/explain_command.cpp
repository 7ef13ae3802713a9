#include <memory>
#include <optional>
#include <span>
#include <string>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/inspection.h"
#include "scanner/module_stream.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-scan/commands.h"
#include "tools/tavrik-scan/subjects.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

std::string Verdict(const evaluation::RuleExplanation &explanation, std::optional<uint32_t> action) {
    if (action)
        return fmt::format("The rule matches; action {}.\n", scanner::ActionName(*action));
    if (explanation.failed == 0)
        return "The rule does not match.\n";
    return fmt::format("The rule does not match: {} condition{} failed.\n", explanation.failed,
                       explanation.failed == 1 ? " has" : "s have");
}

struct Answer {
    std::string text;
    scanner::Json object; // the same for programs
    bool found = false;
    std::optional<base::Error> error; // why the answer is missing or incomplete
};

void ExplainEntry(uint32_t entry, uint64_t size, scanner::Inspection &inspection, Answer &answer) {
    const scanner::Explanation explanation = inspection.ExplainEntry(entry);
    if (size > scanner::kLargestFile)
        answer.text += fmt::format("The file {}.\n", scanner::SearchedInPartText(size));
    answer.text += explanation.text;
    answer.object["entry"] = inspection.EntryObject(entry);
    answer.found = explanation.found;
}

void ExplainFile(const scanner::Scanner &scanner, const Subjects &subjects, const fs::path &file, Answer &answer) {
    base::FileSource source(file);
    answer.object["size"] = source.size();
    scanner::Inspection inspection(scanner, source);
    inspection.RequirePe(file, "name a PE file");
    const scanner::HostRecords &records = inspection.pe().records;
    answer.text = fmt::format("{}: {} bytes, {}, {} of {} section headers present\n", base::PrintablePath(file),
                              source.size(), records.is_pe32_plus ? "PE32+" : "PE32", records.sections.size(),
                              uint16_t{records.file_header.NumberOfSections});
    if (subjects.entry)
        ExplainEntry(*subjects.entry, source.size(), inspection, answer);
    for (const HeuristicRule *rule : subjects.rules) {
        const evaluation::RuleExplanation explanation = inspection.ExplainRule(*rule);
        const std::optional<uint32_t> action =
            explanation.matches ? std::optional(scanner.ActionFor(*rule, file)) : std::nullopt;
        const std::span<const rules::MetadataEntry> metadata = scanner::MetadataOf(scanner, *rule);
        answer.text += '\n' + scanner::MetadataText(metadata) + explanation.text + '\n' + Verdict(explanation, action);
        scanner::Json &object = answer.object["rules"].push_back(scanner::RuleObject(explanation, *rule, action));
        if (!metadata.empty())
            object["metadata"] = scanner::MetadataObject(metadata);
        answer.found = answer.found || explanation.matches;
    }
    inspection.RequireRead(file);
}

ExitCode RunExplain(const ScanOptions &options, std::string what, std::string name) {
    if (options.format == scanner::ReportFormat::Csv)
        throw base::Error("explain has no CSV form; use --format json");
    const std::unique_ptr<const scanner::Scanner> scanner = scanning::MakeScanner(options, options.settings);
    PutInOrder(*scanner, what, name);
    const Subjects subjects = SubjectsOf(*scanner, what);
    const fs::path file = base::PathOf(name);
    scanning::Confine(options, {file});
    Answer answer;
    answer.object["schema"] = scanner::kJsonSchema;
    scanner::AddPath(answer.object, "file", file);
    try {
        ExplainFile(*scanner, subjects, file, answer);
    } catch (const base::Error &error) {
        answer.error = error;
        answer.object["error"] = scanner::ProblemObject(base::ErrorCodeName(error.code()), error.reason());
    }
    base::Print(options.format == scanner::ReportFormat::JsonLines ? scanner::LineOf(answer.object) + '\n'
                                                                   : answer.text);
    if (answer.error) {
        ReportError(file, answer.error->reason());
        return kErrorHappened;
    }
    return answer.found && !options.exit_zero ? kFound : kNothingFound;
}

struct ExplainArguments {
    std::string what;
    std::string file;
};

} // namespace

Command AddExplain(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser =
        app.add_subcommand("explain", "show the conditions of a rule or an entry next to the values of a file");
    const auto arguments = std::make_shared<ExplainArguments>();
    parser
        ->add_option("WHAT", arguments->what,
                     "rule:ID, entry:N (0 to 49), a number for both, or a rule's name such as Worm.Autorun.LD4")
        ->required()
        ->type_name("");
    parser->add_option("FILE", arguments->file, "PE file")->required()->type_name("");
    const auto run = [arguments, &options] {
        return RunExplain(options, scanning::WithoutMark(arguments->what), scanning::WithoutMark(arguments->file));
    };
    return {parser, run, {"--module", "--json", "--format", "--exit-zero", "--rules", "--only"}};
}

} // namespace tavrik::scan_tool
