/* The hand-written rules of the reference database, from their text in the tree. */
#ifndef TAVRIK_TESTS_WRITTEN_RULES_H
#define TAVRIK_TESTS_WRITTEN_RULES_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include "rulelang/parser.h"

namespace tavrik::tests {

/** Parses database/rules. TAVRIK_WRITTEN_RULES names the folder. */
inline rules::RuleSet WrittenRules() {
    std::set<std::filesystem::path> files; // in the order of their names, as the build takes them
    for (const auto &entry : std::filesystem::directory_iterator(TAVRIK_WRITTEN_RULES))
        if (entry.path().extension() == ".rules")
            files.insert(entry.path());
    rules::RuleSet set;
    for (const std::filesystem::path &path : files) {
        std::ifstream file(path, std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const rules::ParsedFile parsed = rules::ParseRules(text);
        if (rules::HasErrors(parsed.diagnostics))
            throw std::runtime_error(path.string() + " has errors");
        set.rules.insert(set.rules.end(), parsed.set.rules.begin(), parsed.set.rules.end());
    }
    return set;
}

} // namespace tavrik::tests

#endif
