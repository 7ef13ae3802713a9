/* Where the rules that a command reads come from. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_RULE_SOURCE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_RULE_SOURCE_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "rules/model.h"
#include "scanner/module_check.h"

namespace tavrik::rules_tool {

/** A module that is named as on the command line. */
class StoredModule : public scanner::StoredModule {
public:
    /** Loads the module of that path, or with "" the one beside the program. Throws base::Error. */
    explicit StoredModule(const std::string &module);

    std::span<HeuristicRule *const> table() const { return rules(); }
};

/** Text files or, without any, a module. */
struct RuleSource {
    std::vector<std::string> files;
    std::string module; // empty: beside the program
};

/** The rules of a source; nothing when a file has errors, which are printed. Throws base::Error. */
std::optional<rules::RuleSet> LoadSource(const RuleSource &source);

} // namespace tavrik::rules_tool

#endif
