/* Rules as YARA text, for those who use both. */
#ifndef TAVRIK_RULES_YARA_EXPORT_H
#define TAVRIK_RULES_YARA_EXPORT_H

#include <cstddef>
#include <string>
#include <vector>

#include "rules/model.h"

namespace tavrik::rules::yara {

/** A rule that YARA cannot express, and the first reason found. */
struct OmittedRule {
    std::size_t place = 0; // in the rule set
    std::string reason;
};

/** What an export made of a rule set. */
struct YaraExport {
    std::string text;                  // a whole file: imports, helper rules, and a rule for each of `exported`
    std::vector<std::size_t> exported; // places in the rule set, ascending
    std::vector<OmittedRule> omitted;  // the others, ascending
};

/** Writes the rules whose answers can be had exactly (docs/yara-export.md). The same set gives the same text. */
YaraExport ExportYara(const RuleSet &set);

/** The name of a rule's counterpart: its id, and how many rules before it in the set have the same id. */
std::string YaraRuleName(const RuleSet &set, std::size_t place);

} // namespace tavrik::rules::yara

#endif
