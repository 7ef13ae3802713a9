#include "tools/tavrik-corpus/hunt_rules.h"

#include <algorithm>
#include <iterator>

#include "base/console.h"
#include "base/error.h"
#include "rules/text/rule_files.h"

namespace tavrik::corpus_tool {

HuntRules::HuntRules(const std::vector<std::string> &files, const std::filesystem::path &module) {
    if (!module.empty()) {
        module_ = std::make_unique<scanner::Module>(module);
        std::ranges::copy(module_->rules(), std::back_inserter(table_));
    }
    if (files.empty())
        return;
    rules::text::RuleFileReader reader;
    for (const std::string &name : files)
        reader.Read(name);
    for (const auto &file : reader.files())
        for (const rules::text::Diagnostic &diagnostic : file->parsed.diagnostics)
            base::PrintError(rules::text::Render(file->source, diagnostic));
    if (reader.HasErrors())
        throw base::Error("the rules have errors; nothing was hunted");
    records_.emplace(reader.Rules());
    std::ranges::copy(records_->rules(), std::back_inserter(table_));
}

} // namespace tavrik::corpus_tool
