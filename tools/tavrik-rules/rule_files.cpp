#include "tools/tavrik-rules/rule_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/text.h"

namespace tavrik::rules_tool {

namespace {

std::string ReadAll(const std::string &name) {
    if (name == kStandardInput)
        return {std::istreambuf_iterator<char>(std::cin), {}};
    const std::filesystem::path path = base::PathOf(name);
    if (std::filesystem::is_directory(path))
        throw base::Error(path, "is a folder; name the rule files in it");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw base::Error(path, fmt::format("cannot be read: {}", std::strerror(errno)));
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (file.bad())
        throw base::Error(path, "cannot be read to its end");
    return text;
}

} // namespace

RuleText::RuleText(const std::string &name)
    : source{name == kStandardInput ? "<standard input>" : name, ReadAll(name)},
      parsed(rules::text::ParseRules(source.text)) {}

bool RuleText::PrintDiagnostics() const {
    for (const rules::text::Diagnostic &diagnostic : parsed.diagnostics)
        base::PrintError(rules::text::Render(source, diagnostic));
    return rules::text::HasErrors(parsed.diagnostics);
}

std::optional<rules::RuleSet> LoadRules(const std::vector<std::string> &files) {
    rules::RuleSet all;
    bool errors = false;
    for (const std::string &name : files) {
        RuleText text(name);
        errors = text.PrintDiagnostics() || errors;
        std::ranges::move(text.parsed.set.rules, std::back_inserter(all.rules));
    }
    return errors ? std::nullopt : std::optional(std::move(all));
}

} // namespace tavrik::rules_tool
