#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "evaluation/rule_explanation.h"
#include "scanner/clean_action.h"
#include "scanner/explain.h"
#include "scanner/explain_json.h"
#include "scanner/module_stream.h"
#include "scanner/report_json.h"
#include "scanner/scan.h"
#include "tools/tavrik-scan/arguments.h"
#include "tools/tavrik-scan/commands.h"
#include "tools/tavrik-scan/confine.h"
#include "tools/tavrik-scan/subjects.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

std::string Verdict(const evaluation::RuleExplanation &explanation, const HeuristicRule &rule,
                    const scanner::Module &module, const fs::path &file) {
    if (explanation.matches)
        return fmt::format(
            "The rule matches; action {}.\n",
            scanner::ActionName(module.PreviewCleanAction(file, scanner::kCleanableFinding, rule.rule_id).action));
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

scanner::Json RuleObject(const evaluation::RuleExplanation &explanation, const HeuristicRule &rule,
                         const scanner::Module &module, const fs::path &file) {
    scanner::Json object = {{"rule", uint32_t{rule.rule_id}},
                            {"name", scanner::DetectionName(rule)},
                            {"matches", explanation.matches},
                            {"failed", explanation.failed}};
    if (explanation.matches)
        object["action"] =
            scanner::ActionName(module.PreviewCleanAction(file, scanner::kCleanableFinding, rule.rule_id).action);
    object["conditions"] = scanner::Json::array();
    for (const evaluation::JudgedLine &line : explanation.conditions)
        object["conditions"].push_back(
            {{"text", line.text},
             {"holds", line.is_met},
             {"required", line.is_required},
             {"has", line.value.empty() ? scanner::Json(nullptr) : scanner::Json(line.value)}});
    return object;
}

void ExplainEntry(const scanner::Module &module, uint32_t entry, base::ByteSource &source,
                  const scanner::HostRecords &records, Answer &answer) {
    const scanner::Explanation explanation = scanner::Explain(module, entry, source, records);
    if (source.size() > scanner::kLargestFile)
        answer.text += fmt::format("The file {}.\n", scanner::SearchedInPartText(source.size()));
    answer.text += explanation.text;
    answer.object["entry"] = scanner::EntryObject(module, entry, source, records);
    answer.found = explanation.found;
}

void ExplainFile(const scanner::Module &module, const Subjects &subjects, const fs::path &file, Answer &answer) {
    base::FileSource source(file);
    answer.object["size"] = source.size();
    evaluation::Features features(source);
    const scanner::PeResult pe = scanner::MakeHostRecords(features.image(), source);
    if (pe.status == scanner::PeStatus::NotPe)
        throw base::Error(file, pe.text + "; name a PE file", base::ErrorCode::NotPe);
    if (pe.status != scanner::PeStatus::Parsed)
        throw base::Error(file, pe.text, base::ErrorCode::ReadFailed);
    answer.text = fmt::format("{}: {} bytes, {}, {} of {} section headers present\n", base::PrintablePath(file),
                              source.size(), pe.records.is_pe32_plus ? "PE32+" : "PE32", pe.records.sections.size(),
                              uint16_t{pe.records.file_header.NumberOfSections});
    if (subjects.entry)
        ExplainEntry(module, *subjects.entry, source, pe.records, answer);
    for (const HeuristicRule *rule : subjects.rules) {
        const evaluation::RuleExplanation explanation = evaluation::ExplainRule(*rule, features);
        answer.text += '\n' + explanation.text + '\n' + Verdict(explanation, *rule, module, file);
        answer.object["rules"].push_back(RuleObject(explanation, *rule, module, file));
        answer.found = answer.found || explanation.matches;
    }
    if (!source.error().empty())
        throw base::Error(file, source.error(), source.error_code());
}

ExitCode RunExplain(const ScanOptions &options, std::string what, std::string name) {
    if (options.format == scanner::ReportFormat::Csv)
        throw base::Error("explain has no CSV form; use --format json");
    const scanner::Module module(options.module);
    PutInOrder(module, what, name);
    const Subjects subjects = SubjectsOf(module, what);
    const fs::path file = base::PathOf(name);
    Confine(options, {file});
    Answer answer;
    answer.object["schema"] = scanner::kJsonSchema;
    scanner::AddPath(answer.object, "file", file);
    try {
        ExplainFile(module, subjects, file, answer);
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

struct Arguments {
    std::string what;
    std::string file;
};

} // namespace

Command AddExplain(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser =
        app.add_subcommand("explain", "show the conditions of a rule or an entry next to the values of a file");
    const auto arguments = std::make_shared<Arguments>();
    parser
        ->add_option("WHAT", arguments->what,
                     "rule:ID, entry:N (0 to 49), a number for both, or a rule's name such as Worm.Autorun.LD4")
        ->required()
        ->type_name("");
    parser->add_option("FILE", arguments->file, "PE file")->required()->type_name("");
    const auto run = [arguments, &options] {
        return RunExplain(options, WithoutMark(arguments->what), WithoutMark(arguments->file));
    };
    return {parser, run, {"--module", "--json", "--format", "--exit-zero"}};
}

} // namespace tavrik::scan_tool
