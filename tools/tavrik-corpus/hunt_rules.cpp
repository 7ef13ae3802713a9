#include "tools/tavrik-corpus/hunt_rules.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/text.h"
#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"

namespace tavrik::corpus_tool {

namespace {

std::string ReadRuleFile(const std::string &name) {
    std::ifstream file(base::PathOf(name), std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad())
        throw base::Error(base::PathOf(name), fmt::format("cannot be read: {}", std::strerror(errno)));
    return text;
}

} // namespace

HuntRules::HuntRules(const std::vector<std::string> &files, const std::filesystem::path &module) {
    if (files.empty()) {
        module_ = std::make_unique<scanner::Module>(module);
        return;
    }
    rules::RuleSet all;
    bool has_errors = false;
    for (const std::string &name : files) {
        const rules::text::Source source{name, ReadRuleFile(name)};
        rules::text::ParsedFile parsed = rules::text::ParseRules(source.text);
        for (const rules::text::Diagnostic &diagnostic : parsed.diagnostics)
            base::PrintError(rules::text::Render(source, diagnostic));
        has_errors = has_errors || rules::text::HasErrors(parsed.diagnostics);
        std::ranges::move(parsed.set.rules, std::back_inserter(all.rules));
    }
    if (has_errors)
        throw base::Error("the rules have errors; nothing was hunted");
    records_.emplace(all);
}

} // namespace tavrik::corpus_tool
