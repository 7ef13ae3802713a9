/* Why each rule of a run does or does not match a file. */
#ifndef TAVRIK_TOOLS_SCANNING_EXPLANATIONS_H
#define TAVRIK_TOOLS_SCANNING_EXPLANATIONS_H

#include <string>

#include "scanner/scan.h"

namespace tavrik::scanning {

/** Reads the file of a report once more and explains each of the scanner's rules: as text, or for `as_json` as the
 * members of the report's JSON object. "" for a file that could not be scanned. */
std::string ExplainRules(const scanner::Scanner &scanner, const scanner::FileReport &report);

/** The report's object with the explanations under "explanations", as a line with its line feed. */
std::string ExplainedLine(const scanner::Scanner &scanner, const scanner::FileReport &report);

} // namespace tavrik::scanning

#endif
