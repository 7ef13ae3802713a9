/* Where the rules that a command reads come from. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_RULE_SOURCE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_RULE_SOURCE_H

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/system.h"
#include "rules/model.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::rules_tool {

/** A module whose records are read in stored form: it is loaded but not initialised. */
class StoredModule {
public:
    /** Loads the module of that path, or with "" the one beside the program. Throws base::Error. */
    explicit StoredModule(const std::string &module);

    std::span<HeuristicRule *const> table() const { return table_; }

    /** The module's file, absolute. */
    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
    std::optional<base::DynamicLibrary> library_;
    std::span<HeuristicRule *const> table_; // in the library
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
