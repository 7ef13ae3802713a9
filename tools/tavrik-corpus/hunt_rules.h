/* The rules that a hunt evaluates. */
#ifndef TAVRIK_TOOLS_TAVRIK_CORPUS_HUNT_RULES_H
#define TAVRIK_TOOLS_TAVRIK_CORPUS_HUNT_RULES_H

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "rules/record/record_builder.h"
#include "scanner/module.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::corpus_tool {

/** Rules from text files, those of a module, or both, the module's first. */
class HuntRules {
public:
    /** An empty path: no module. Throws base::Error when a file or the module cannot be read, and when a text has
     * errors, which are printed. */
    HuntRules(const std::vector<std::string> &files, const std::filesystem::path &module);

    std::span<HeuristicRule *const> table() const { return table_; }

private:
    std::unique_ptr<scanner::Module> module_;
    std::optional<rules::record::RecordSet> records_;
    std::vector<HeuristicRule *> table_;
};

} // namespace tavrik::corpus_tool

#endif
