/* From rules to the generated source of the module's database. */
#ifndef TAVRIK_RULES_RECORD_EMITTER_H
#define TAVRIK_RULES_RECORD_EMITTER_H

#include <cstddef>
#include <string>
#include <vector>

#include "rules/model.h"

namespace tavrik::rules::record {

struct GeneratedFile {
    std::string name;
    std::string text;
};

/** The number of rule files that EmitDatabase makes, whatever the rules: a build knows its inputs beforehand. */
inline constexpr std::size_t kRuleFileCount = 8;

/** The names of all files that EmitDatabase makes, in its order. */
std::vector<std::string> DatabaseFileNames();

/** The database as C++ source in stored form: constant-initialised records and lists, 3 added to every byte of the
 * feature strings, every other text once and shared by pointer. The same rules give the same bytes. Throws
 * std::invalid_argument when a value does not fit its place in the record; parsed rules always fit. */
std::vector<GeneratedFile> EmitDatabase(const RuleSet &set);

} // namespace tavrik::rules::record

#endif
