#include "tools/tavrik-rules/tool_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include <fmt/format.h>

namespace tavrik::rules_tool {

namespace {

std::string ReadAll(const std::string &name) {
    if (name == kStandardInput)
        return {std::istreambuf_iterator<char>(std::cin), {}};
    const std::filesystem::path path = PathOf(name);
    if (std::filesystem::is_directory(path))
        throw ToolError(fmt::format("{}: is a folder; name the rule files in it", name));
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw ToolError(fmt::format("{}: cannot be read: {}", name, std::strerror(errno)));
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (file.bad())
        throw ToolError(fmt::format("{}: cannot be read to its end", name));
    return text;
}

} // namespace

std::filesystem::path PathOf(const std::string &name) {
    return std::u8string(name.begin(), name.end());
}

void WriteAll(const std::filesystem::path &path, std::string_view text) {
    std::filesystem::path temporary = path;
    temporary += ".new";
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    std::error_code error;
    if (file)
        std::filesystem::rename(temporary, path, error);
    if (!file || error) {
        std::filesystem::remove(temporary, error);
        throw ToolError(fmt::format("{}: cannot be written; is there space, and may you write there?", path.string()));
    }
}

void WriteIfChanged(const std::filesystem::path &path, std::string_view text) {
    std::ifstream old(path, std::ios::binary);
    if (old && std::string{std::istreambuf_iterator<char>(old), {}} == text)
        return;
    old.close();
    WriteAll(path, text);
}

RuleText::RuleText(const std::string &name)
    : source{name == kStandardInput ? "<standard input>" : name, ReadAll(name)},
      parsed(rules::text::ParseRules(source.text)) {}

bool RuleText::PrintDiagnostics() const {
    for (const rules::text::Diagnostic &diagnostic : parsed.diagnostics)
        fmt::print(stderr, "{}", rules::text::Render(source, diagnostic));
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
