#include "tools/tavrik-rules/commands.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/system.h"
#include "base/text.h"
#include "database/profile/profile.h"
#include "database/profile/record_facts.h"
#include "rules/analysis/lints.h"
#include "rules/names.h"
#include "rules/record/emitter.h"
#include "rules/record/reader.h"
#include "rules/text/formatter.h"
#include "rules/text/printer.h"
#include "tavrik2/heuristic_rule.h"
#include "tools/tavrik-rules/tool_files.h"

namespace tavrik::rules_tool {

namespace {

// A module whose records are read in stored form: it is loaded but not initialised.
class StoredModule {
public:
    explicit StoredModule(const std::string &module)
        : path_(std::filesystem::absolute(module.empty() ? base::ProgramFolder() / "tavrik2.hbx" : PathOf(module))) {
        try {
            library_.emplace(path_);
        } catch (const std::runtime_error &error) {
            throw Failure(fmt::format("cannot be loaded: {}", error.what()));
        }
        const auto get = reinterpret_cast<decltype(&HeurGetDetectionInfo)>(library_->Symbol("HeurGetDetectionInfo"));
        if (get == nullptr)
            throw Failure("is not a rule module, it has no HeurGetDetectionInfo");
        HeuristicRule *const *table = nullptr;
        uint32_t count = 0;
        if (get(&table, &count) != 1)
            throw Failure("does not hand out its rules");
        table_ = {table, count};
    }

    std::span<HeuristicRule *const> table() const { return table_; }

private:
    ToolError Failure(const std::string &reason) const {
        return ToolError(
            fmt::format("{}: {}; build it with ./run build, or name it with --module", path_.string(), reason));
    }

    std::filesystem::path path_;
    std::optional<base::DynamicLibrary> library_;
    std::span<HeuristicRule *const> table_;
};

template <typename Action>
ExitCode Guard(Action action) {
    try {
        return action();
    } catch (const std::exception &error) {
        fmt::print(stderr, "tavrik-rules: {}\n", error.what());
        return kFailed;
    }
}

nlohmann::ordered_json ToJson(const rules::text::Source &source, const rules::text::Diagnostic &diagnostic) {
    const rules::text::Place place = rules::text::PlaceOf(source.text, diagnostic.offset);
    return {{"file", source.name},
            {"line", place.line},
            {"column", place.column},
            {"severity", diagnostic.severity == rules::text::Severity::Error ? "error" : "warning"},
            {"code", diagnostic.code},
            {"message", diagnostic.message},
            {"help", diagnostic.help}};
}

std::string Dumped(const nlohmann::ordered_json &json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string TargetText(uint32_t target) {
    std::string text;
    for (const rules::NamedNumber &name : rules::TargetNames()) {
        if (name.number == 0 ? target == 0 : (target & name.number) != 0)
            text += (text.empty() ? "" : ",") + std::string(name.name);
    }
    return text.empty() ? fmt::format("{:#x}", target) : text;
}

void PrintCounts(const rules::RuleSet &set) {
    fmt::print("{} rules\n\n{:<24}{:>8}{:>10}{:>10}\n", set.rules.size(), "list", "rules", "largest", "elements");
    for (const profile::ListProfile &list : profile::ListProfiles()) {
        std::size_t rules = 0;
        std::size_t largest = 0;
        std::size_t elements = 0;
        for (const rules::Rule &rule : set.rules) {
            const std::size_t size = list.size(rule);
            rules += size > 0 ? 1 : 0;
            largest = std::max(largest, size);
            elements += size;
        }
        fmt::print("{:<24}{:>8}{:>10}{:>10}\n", list.name, rules, largest, elements);
    }
}

ExitCode PrintFacts(const std::vector<profile::FactResult> &facts, bool json) {
    std::size_t deviations = 0;
    for (const profile::FactResult &fact : facts) {
        if (!fact.Holds())
            ++deviations;
        if (json)
            fmt::print("{}\n", Dumped({{"fact", fact.name},
                                       {"expected", fact.expected},
                                       {"actual", fact.actual},
                                       {"holds", fact.Holds()}}));
        else
            fmt::print("{:<10} {}: expected {}, actual {}\n", fact.Holds() ? "met" : "DEVIATES", fact.name,
                       fact.expected, fact.actual);
    }
    if (!json)
        fmt::print("{} facts, {} deviations\n", facts.size(), deviations);
    return deviations == 0 ? kFine : kErrorsFound;
}

} // namespace

std::optional<rules::RuleSet> LoadSource(const RuleSource &source) {
    if (!source.files.empty())
        return LoadRules(source.files);
    return rules::record::ReadRules(StoredModule(source.module).table(), rules::record::RecordForm::Stored);
}

ExitCode Check(const std::vector<std::string> &files, bool json) {
    return Guard([&] {
        std::size_t errors = 0;
        std::size_t warnings = 0;
        std::size_t rules = 0;
        std::deque<RuleText> texts;
        std::vector<rules::analysis::LintedFile> linted;
        for (const std::string &name : files) {
            const RuleText &text = texts.emplace_back(name);
            linted.push_back({&text.source, &text.parsed});
        }
        // Rules with errors are not complete, and would be judged by what they lack.
        if (std::ranges::none_of(
                texts, [](const RuleText &text) { return rules::text::HasErrors(text.parsed.diagnostics); })) {
            std::vector<std::vector<rules::text::Diagnostic>> lints = rules::analysis::FindLints(linted);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                std::vector<rules::text::Diagnostic> &all = texts[i].parsed.diagnostics;
                std::ranges::move(lints[i], std::back_inserter(all));
                std::ranges::stable_sort(all, {}, &rules::text::Diagnostic::offset);
            }
        }
        for (const RuleText &text : texts) {
            for (const rules::text::Diagnostic &diagnostic : text.parsed.diagnostics) {
                ++(diagnostic.severity == rules::text::Severity::Error ? errors : warnings);
                if (json)
                    fmt::print("{}\n", Dumped(ToJson(text.source, diagnostic)));
                else
                    fmt::print("{}", rules::text::Render(text.source, diagnostic));
            }
            rules += text.parsed.set.rules.size();
        }
        if (!json)
            fmt::print("{}, {}, {}\n", base::CountText(rules, "rule"), base::CountText(errors, "error"),
                       base::CountText(warnings, "warning"));
        return errors > 0 ? kErrorsFound : warnings > 0 ? kWarningsFound : kFine;
    });
}

ExitCode Compile(const std::vector<std::string> &files, const std::filesystem::path &folder) {
    return Guard([&] {
        const auto set = LoadRules(files);
        if (!set)
            return kErrorsFound;
        std::filesystem::create_directories(folder);
        for (const rules::record::GeneratedFile &file : rules::record::EmitDatabase(*set))
            WriteIfChanged(folder / file.name, file.text);
        return kFine;
    });
}

ExitCode Format(const std::vector<std::string> &files, bool check) {
    return Guard([&] {
        bool errors = false;
        bool changes = false;
        for (const std::string &name : files) {
            const RuleText text(name);
            if (text.PrintDiagnostics()) {
                errors = true;
                continue;
            }
            const std::string formatted = rules::text::FormatRules(text.parsed);
            const bool differs = formatted != text.source.text;
            changes = changes || differs;
            if (check && differs)
                fmt::print("{}\n", text.source.name);
            if (!check && name == kStandardInput)
                fmt::print("{}", formatted);
            else if (!check && differs)
                WriteAll(PathOf(name), formatted);
        }
        return errors || (check && changes) ? kErrorsFound : kFine;
    });
}

ExitCode Dump(const RuleSource &source) {
    return Guard([&] {
        const auto set = LoadSource(source);
        if (!set)
            return kErrorsFound;
        fmt::print("{}", rules::text::PrintRuleSet(*set));
        return kFine;
    });
}

ExitCode Stats(const RuleSource &source, bool verify, bool json) {
    return Guard([&] {
        const auto set = LoadSource(source);
        if (!set)
            return kErrorsFound;
        if (!verify) {
            PrintCounts(*set);
            return kFine;
        }
        std::vector<profile::FactResult> facts = profile::CheckProfile(*set);
        if (source.files.empty())
            std::ranges::move(profile::CheckRecords(StoredModule(source.module).table()), std::back_inserter(facts));
        return PrintFacts(facts, json);
    });
}

ExitCode List(const RuleSource &source, bool json) {
    return Guard([&] {
        const auto set = LoadSource(source);
        if (!set)
            return kErrorsFound;
        for (const rules::Rule &rule : set->rules) {
            if (json)
                fmt::print("{}\n",
                           Dumped({{"id", rule.rule_id},
                                   {"name", rule.detection_name},
                                   {"target", TargetText(rule.attribute_a)},
                                   {"strings", rule.strings.size()},
                                   {"conditions", rule.header_conditions.size() + rule.section_conditions.size()}}));
            else
                fmt::print("{:>5}  {:<30} {}\n", rule.rule_id, rule.detection_name, TargetText(rule.attribute_a));
        }
        return kFine;
    });
}

ExitCode Show(const RuleSource &source, const std::string &wanted) {
    return Guard([&] {
        const auto set = LoadSource(source);
        if (!set)
            return kErrorsFound;
        uint32_t number = 0;
        const char *const end = wanted.data() + wanted.size();
        const bool by_number = std::from_chars(wanted.data(), end, number).ptr == end;
        rules::RuleSet found;
        std::ranges::copy_if(set->rules, std::back_inserter(found.rules), [&](const rules::Rule &rule) {
            return by_number ? rule.rule_id == number : rule.detection_name.find(wanted) != std::string::npos;
        });
        if (found.rules.empty()) {
            fmt::print(stderr, "tavrik-rules: no rule has the {} '{}'; 'tavrik-rules list' shows them all\n",
                       by_number ? "number" : "name", wanted);
            return kErrorsFound;
        }
        fmt::print("{}", rules::text::PrintRuleSet(found));
        return kFine;
    });
}

} // namespace tavrik::rules_tool
