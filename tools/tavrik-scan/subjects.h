/* What a command line says of entries and rules. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_SUBJECTS_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_SUBJECTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "scanner/scan.h"

namespace tavrik::scan_tool {

/** Entries and rules that were named. */
struct Subjects {
    std::optional<uint32_t> entry;            // of the locator table
    std::vector<const HeuristicRule *> rules; // in the table's order
};

/** The entry "entry:N", the rules "rule:ID" or "NAME", or both for a number "N"; capitals and small letters are the
 * same. Throws base::Error when there are none; its text has the most similar name. */
Subjects SubjectsOf(const scanner::Scanner &scanner, const std::string &text);

/** The rules "rule:ID" or "ID". Throws base::Error. */
std::vector<const HeuristicRule *> RulesOf(const scanner::Scanner &scanner, const std::string &text);

/** For a command with the arguments WHAT and FILE: exchanges them when they are plainly in the wrong order, which is
 * noted on standard error: `what` is the name of a file, `file` is none and names an entry or a rule. */
void PutInOrder(const scanner::Scanner &scanner, std::string &what, std::string &file);

} // namespace tavrik::scan_tool

#endif
