#include "tools/tavrik-rules/rule_source.h"

#include "base/module_path.h"
#include "base/text.h"
#include "rules/record/reader.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

StoredModule::StoredModule(const std::string &module)
    : scanner::StoredModule(module.empty() ? base::DefaultModulePath() : base::PathOf(module)) {}

std::optional<rules::RuleSet> LoadSource(const RuleSource &source) {
    if (!source.files.empty())
        return LoadRules(source.files);
    return rules::record::ReadRules(StoredModule(source.module).table(), rules::record::RecordForm::Stored);
}

} // namespace tavrik::rules_tool
