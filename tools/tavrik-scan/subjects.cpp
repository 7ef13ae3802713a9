#include "tools/tavrik-scan/subjects.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/text.h"
#include "rules/text/suggestions.h"
#include "scanner/scan.h"

namespace tavrik::scan_tool {

namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower;
}

std::optional<uint32_t> NumberOf(std::string_view text) {
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

template <typename Predicate>
std::vector<const HeuristicRule *> RulesThat(const scanner::Scanner &scanner, Predicate predicate) {
    std::vector<const HeuristicRule *> rules;
    for (const HeuristicRule *rule : scanner.rules())
        if (predicate(*rule))
            rules.push_back(rule);
    return rules;
}

// A text with what it says.
struct Named {
    enum class Kind { Any, Entry, Rule };

    explicit Named(std::string_view text) {
        constexpr std::string_view kEntry = "entry:";
        constexpr std::string_view kRule = "rule:";
        const std::string lower = Lower(text);
        kind = lower.starts_with(kEntry) ? Kind::Entry : lower.starts_with(kRule) ? Kind::Rule : Kind::Any;
        rest = text.substr(kind == Kind::Entry ? kEntry.size() : kind == Kind::Rule ? kRule.size() : 0);
        number = NumberOf(rest);
    }

    Kind kind;
    std::string_view rest; // after the prefix
    std::optional<uint32_t> number;
};

Subjects Find(const scanner::Scanner &scanner, const Named &named) {
    Subjects subjects;
    if (named.number && *named.number < scanner.module()->locators().size() && named.kind != Named::Kind::Rule)
        subjects.entry = named.number;
    if (named.number && named.kind != Named::Kind::Entry)
        subjects.rules = RulesThat(scanner, [&](const HeuristicRule &rule) { return rule.rule_id == *named.number; });
    if (!named.number && named.kind != Named::Kind::Entry)
        subjects.rules = RulesThat(scanner, [name = Lower(named.rest)](const HeuristicRule &rule) {
            return Lower(scanner::DetectionName(rule)) == name;
        });
    return subjects;
}

bool IsEmpty(const Subjects &subjects) {
    return !subjects.entry && subjects.rules.empty();
}

// "; did you mean 'X'?" for the most similar name of a rule; "" without one.
std::string Suggestion(const scanner::Scanner &scanner, std::string_view wrong) {
    std::vector<std::string> names;
    for (const HeuristicRule *rule : scanner.rules())
        names.push_back(Lower(scanner::DetectionName(*rule)));
    const std::string sentence = rules::text::Suggest(Lower(wrong), {names.begin(), names.end()});
    for (std::size_t place = 0; !sentence.empty() && place < names.size(); ++place)
        if (sentence.find('\'' + names[place] + '\'') != std::string::npos)
            return fmt::format("; did you mean {}?", base::Printable(scanner::DetectionName(*scanner.rules()[place])));
    return "";
}

bool IsFile(const std::string &name) {
    std::error_code ignored;
    return std::filesystem::exists(base::PathOf(name), ignored);
}

} // namespace

Subjects SubjectsOf(const scanner::Scanner &scanner, const std::string &text) {
    const Named named(text);
    Subjects subjects = Find(scanner, named);
    if (!IsEmpty(subjects))
        return subjects;
    constexpr char kLists[] = "tavrik-scan locators lists the entries, tavrik-rules list the rules";
    const std::string shown = base::Printable(named.rest);
    if (named.kind == Named::Kind::Entry)
        throw base::Error(fmt::format("there is no entry \"{}\"; {}", shown, kLists));
    if (named.number)
        throw base::Error(fmt::format("there is no {} \"{}\"; {}",
                                      named.kind == Named::Kind::Rule ? "rule" : "entry and no rule", shown, kLists));
    const std::string suggestion = Suggestion(scanner, named.rest);
    throw base::Error(fmt::format("there is no rule with the name \"{}\"{}", shown,
                                  suggestion.empty() ? fmt::format("; {}", kLists) : suggestion));
}

std::vector<const HeuristicRule *> RulesOf(const scanner::Scanner &scanner, const std::string &text) {
    const Named named(text);
    if (named.kind == Named::Kind::Entry)
        throw base::Error(fmt::format("\"{}\" is no rule; name one as 173 or rule:173", base::Printable(text)));
    std::vector<const HeuristicRule *> rules = Find(scanner, named).rules;
    if (rules.empty() && named.number)
        throw base::Error(fmt::format("there is no rule {}; tavrik-rules list lists them", *named.number));
    if (rules.empty())
        SubjectsOf(scanner, text); // says so
    return rules;
}

void PutInOrder(const scanner::Scanner &scanner, std::string &what, std::string &file) {
    if (!IsFile(what) || IsFile(file) || !IsEmpty(Find(scanner, Named(what))) || IsEmpty(Find(scanner, Named(file))))
        return;
    std::swap(what, file);
    base::PrintError(fmt::format("tavrik-scan: the file comes last; taken as \"{} {}\"\n", base::Printable(what),
                                 base::Printable(file)));
}

} // namespace tavrik::scan_tool
