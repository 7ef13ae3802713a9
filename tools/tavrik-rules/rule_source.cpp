#include "tools/tavrik-rules/rule_source.h"

#include <filesystem>
#include <stdexcept>

#include <fmt/format.h>

#include "base/error.h"
#include "base/module_path.h"
#include "base/text.h"
#include "rules/record/reader.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

namespace {

base::Error Failure(const std::filesystem::path &module, const std::string &reason) {
    return {module, fmt::format("{}; build it with ./run build, or name it with --module", reason)};
}

} // namespace

StoredModule::StoredModule(const std::string &module)
    : path_(std::filesystem::absolute(module.empty() ? base::DefaultModulePath() : base::PathOf(module))) {
    try {
        library_.emplace(path_);
    } catch (const std::runtime_error &error) {
        throw Failure(path_, fmt::format("cannot be loaded: {}", error.what()));
    }
    const auto get = reinterpret_cast<decltype(&HeurGetDetectionInfo)>(library_->Symbol("HeurGetDetectionInfo"));
    if (get == nullptr)
        throw Failure(path_, "is not a rule module, it has no HeurGetDetectionInfo");
    HeuristicRule *const *table = nullptr;
    uint32_t count = 0;
    if (get(&table, &count) != 1)
        throw Failure(path_, "does not hand out its rules");
    table_ = {table, count};
}

std::optional<rules::RuleSet> LoadSource(const RuleSource &source) {
    if (!source.files.empty())
        return LoadRules(source.files);
    return rules::record::ReadRules(StoredModule(source.module).table(), rules::record::RecordForm::Stored);
}

} // namespace tavrik::rules_tool
