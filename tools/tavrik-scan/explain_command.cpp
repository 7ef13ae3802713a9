#include <charconv>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "base/error.h"
#include "base/text.h"
#include "evaluation/rule_explanation.h"
#include "scanner/clean_action.h"
#include "scanner/explain.h"
#include "scanner/module_stream.h"
#include "scanner/scan.h"
#include "tools/tavrik-scan/arguments.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

// What is to be explained.
struct Subjects {
    std::optional<uint32_t> entry;            // of the locator table
    std::vector<const HeuristicRule *> rules; // in the table's order
};

std::optional<uint32_t> NumberOf(std::string_view text) {
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

template <typename Predicate>
std::vector<const HeuristicRule *> RulesThat(const scanner::Module &module, Predicate predicate) {
    std::vector<const HeuristicRule *> rules;
    for (const HeuristicRule *rule : module.rules())
        if (predicate(*rule))
            rules.push_back(rule);
    return rules;
}

Subjects SubjectsOf(const scanner::Module &module, const std::string &what) {
    constexpr std::string_view kEntry = "entry:";
    constexpr std::string_view kRule = "rule:";
    const bool names_entry = what.starts_with(kEntry);
    const bool names_rule = what.starts_with(kRule);
    const std::string_view digits = std::string_view(what).substr(names_entry  ? kEntry.size()
                                                                  : names_rule ? kRule.size()
                                                                               : 0);
    const std::optional<uint32_t> number = NumberOf(digits);
    if (!number && (names_entry || names_rule))
        throw base::Error(
            fmt::format("\"{}\" is not a number in \"{}\"", base::Printable(digits), base::Printable(what)));

    Subjects subjects;
    if (number && *number < module.locators().size() && !names_rule)
        subjects.entry = number;
    if (number && !names_entry)
        subjects.rules = RulesThat(module, [&](const HeuristicRule &rule) { return rule.rule_id == *number; });
    if (!number)
        subjects.rules =
            RulesThat(module, [&](const HeuristicRule &rule) { return scanner::DetectionName(rule) == what; });
    if (!subjects.entry && subjects.rules.empty())
        throw base::Error(
            fmt::format("there is no {} \"{}\"; tavrik-scan locators lists the entries, tavrik-rules list the rules",
                        names_entry  ? "entry"
                        : names_rule ? "rule"
                        : number     ? "entry and no rule"
                                     : "rule with the name",
                        base::Printable(digits)));
    return subjects;
}

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
    bool found = false;
    std::string error; // why the text is missing or incomplete; "" when it is complete
};

Answer ExplainFile(const scanner::Module &module, const Subjects &subjects, const fs::path &file) {
    base::FileSource source(file);
    evaluation::Features features(source);
    const scanner::PeResult pe = scanner::MakeHostRecords(features.image(), source);
    if (pe.status != scanner::PeStatus::Parsed)
        throw base::Error(file, pe.status == scanner::PeStatus::NotPe ? pe.text + "; name a PE file" : pe.text);
    if (source.size() > scanner::kLargestFile && subjects.entry)
        throw base::Error(file, scanner::TooLargeText(source.size()));
    Answer answer;
    answer.text = fmt::format("{}: {} bytes, {}, {} of {} section headers present\n", base::PrintablePath(file),
                              source.size(), pe.records.is_pe32_plus ? "PE32+" : "PE32", pe.records.sections.size(),
                              uint16_t{pe.records.file_header.NumberOfSections});
    if (subjects.entry) {
        const scanner::Explanation explanation = scanner::Explain(module, *subjects.entry, source, pe.records);
        answer.text += explanation.text;
        answer.found = explanation.found;
    }
    for (const HeuristicRule *rule : subjects.rules) {
        const evaluation::RuleExplanation explanation = evaluation::ExplainRule(*rule, features);
        answer.text += '\n' + explanation.text + '\n' + Verdict(explanation, *rule, module, file);
        answer.found = answer.found || explanation.matches;
    }
    answer.error = source.error();
    return answer;
}

ExitCode RunExplain(const fs::path &module_path, const std::string &what, const fs::path &file) {
    const scanner::Module module(module_path);
    const Subjects subjects = SubjectsOf(module, what);
    Answer answer;
    try {
        answer = ExplainFile(module, subjects, file);
    } catch (const base::Error &error) {
        answer.error = error.reason();
    }
    base::Print(answer.text);
    if (!answer.error.empty()) {
        ReportError(file, answer.error);
        return kErrorHappened;
    }
    return answer.found ? kFound : kNothingFound;
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
                     "rule:ID, entry:N (0 to 49), a number for both, or a detection's name such as Worm.Autorun.LD4")
        ->required()
        ->type_name("");
    parser->add_option("FILE", arguments->file, "PE file")->required()->type_name("");
    const auto run = [arguments, &options] {
        return RunExplain(options.module, WithoutMark(arguments->what), PathOfArgument(arguments->file));
    };
    return {parser, run, {"--module"}};
}

} // namespace tavrik::scan_tool
