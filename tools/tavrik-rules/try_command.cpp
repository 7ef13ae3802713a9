#include <algorithm>

#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/text.h"
#include "base/walk.h"
#include "evaluation/features.h"
#include "evaluation/rule_explanation.h"
#include "evaluation/rule_index.h"
#include "rules/names.h"
#include "rules/record/record_builder.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/json_line.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

namespace {

constexpr std::string_view kRuleSuffix = ".rules";

std::string Named(const HeuristicRule &rule) {
    return fmt::format("rule {} \"{}\"", uint32_t{rule.rule_id}, base::Printable(rule.detection_name));
}

// What the text says about a rule, before the explanation of its conditions.
std::string MetadataText(const rules::Rule &rule) {
    std::string text;
    for (const rules::MetadataEntry &entry : rule.metadata)
        text += fmt::format("      {}: {}\n", rules::NameOf(rules::MetadataKeys(), static_cast<uint32_t>(entry.key)),
                            base::Printable(entry.text));
    return text;
}

// Evaluates a rule table on one file after the other, and prints.
class Trial {
public:
    Trial(const rules::RuleSet &set, std::span<HeuristicRule *const> rules, const TryOptions &options)
        : set_(set), rules_(rules), index_(rules), options_(options) {}

    void Visit(const std::filesystem::path &path) {
        try {
            base::FileSource source(path);
            evaluation::Features features(source);
            const std::vector<uint32_t> matches = index_.Match(features);
            const std::vector<evaluation::RuleExplanation> explanations = Explain(features);
            if (!source.error().empty())
                return Fail(path, source.error());
            ++files_;
            matched_ += matches.empty() ? 0U : 1U;
            not_pe_ += features.IsPe() ? 0U : 1U;
            if (options_.json)
                PrintJson(path, features.IsPe(), matches, explanations);
            else
                PrintText(path, features.IsPe(), matches, explanations);
        } catch (const base::Error &error) {
            Fail(path, error.reason());
        }
    }

    void Fail(const std::filesystem::path &path, const std::string &reason) {
        ++errors_;
        if (options_.json)
            PrintJsonLine({{"file", base::PathText(path)}, {"error", reason}});
        base::PrintError(fmt::format("tavrik-rules: {}: {}\n", base::PrintablePath(path), reason));
    }

    ExitCode Finish() const {
        if (!options_.json)
            base::Print(fmt::format("{}, {}: {} matched, {} not PE, {}\n", base::CountText(rules_.size(), "rule"),
                                    base::CountText(files_ + errors_, "file"), matched_, not_pe_,
                                    base::CountText(errors_, "error")));
        return errors_ == 0 ? kFine : kFailed;
    }

private:
    std::vector<evaluation::RuleExplanation> Explain(evaluation::Features &features) const {
        std::vector<evaluation::RuleExplanation> explanations;
        if (options_.explain && features.IsPe())
            for (const HeuristicRule *rule : rules_)
                explanations.push_back(evaluation::ExplainRule(*rule, features));
        return explanations;
    }

    void PrintText(const std::filesystem::path &path, bool is_pe, const std::vector<uint32_t> &matches,
                   const std::vector<evaluation::RuleExplanation> &explanations) const {
        const std::string file = base::PrintablePath(path);
        for (const uint32_t place : matches)
            base::Print(fmt::format("{}: {}\n", file, Named(*rules_[place])));
        if (options_.explain && !is_pe)
            base::Print(fmt::format("{}: no PE file, which rules are not asked of\n", file));
        for (std::size_t place = 0; place < explanations.size(); ++place) {
            const evaluation::RuleExplanation &explanation = explanations[place];
            base::Print(fmt::format("\n{}: {}: {}\n{}", file, Named(*rules_[place]),
                                    explanation.matches
                                        ? "matches"
                                        : fmt::format("does not match, {} conditions are not met", explanation.failed),
                                    MetadataText(set_.rules[place]) + explanation.text));
        }
        if (!explanations.empty())
            base::Print("\n");
    }

    void PrintJson(const std::filesystem::path &path, bool is_pe, const std::vector<uint32_t> &matches,
                   const std::vector<evaluation::RuleExplanation> &explanations) const {
        const auto reference = [this](std::size_t place) -> nlohmann::ordered_json {
            nlohmann::ordered_json entry = {{"rule", uint32_t{rules_[place]->rule_id}},
                                            {"name", rules_[place]->detection_name}};
            if (!set_.rules[place].metadata.empty())
                entry["metadata"] = MetadataJson(set_.rules[place]);
            return entry;
        };
        nlohmann::ordered_json line = {
            {"file", base::PathText(path)}, {"pe", is_pe}, {"matches", nlohmann::ordered_json::array()}};
        for (const uint32_t place : matches)
            line["matches"].push_back(reference(place));
        for (std::size_t place = 0; place < explanations.size(); ++place) {
            nlohmann::ordered_json entry = reference(place);
            entry["matches"] = explanations[place].matches;
            entry["failed"] = explanations[place].failed;
            entry["text"] = explanations[place].text;
            line["explanations"].push_back(std::move(entry));
        }
        PrintJsonLine(line);
    }

    const rules::RuleSet &set_;
    std::span<HeuristicRule *const> rules_; // records of the set
    evaluation::RuleIndex index_;
    const TryOptions &options_;
    std::size_t files_ = 0; // that could be read
    std::size_t matched_ = 0;
    std::size_t not_pe_ = 0;
    std::size_t errors_ = 0;
};

} // namespace

ExitCode Try(const TryOptions &options) {
    std::vector<std::string> rule_files = options.rule_files;
    std::vector<std::string> paths;
    for (const std::string &argument : options.arguments)
        (argument.ends_with(kRuleSuffix) && !std::filesystem::is_directory(base::PathOf(argument)) ? rule_files : paths)
            .push_back(argument);
    if (rule_files.empty())
        throw base::Error("try: no rule files; name one that ends in .rules, or use --rules FILE");
    if (paths.empty())
        throw base::Error("try: nothing to try the rules on; name files, or folders with -r");
    const auto set = LoadRules(rule_files);
    if (!set)
        return kErrorsFound;
    const rules::record::RecordSet records(*set);
    Trial trial(*set, records.rules(), options);
    for (const std::string &path : paths)
        base::Walk(base::PathOf(path), {options.recursive, {}},
                   {[&](const std::filesystem::path &file) {
                        trial.Visit(file);
                        return true;
                    },
                    [&](const std::filesystem::path &failed, const base::Error &error) {
                        trial.Fail(failed, error.reason());
                        return true;
                    }});
    return trial.Finish();
}

} // namespace tavrik::rules_tool
