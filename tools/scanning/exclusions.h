/* Patterns of files that a scan leaves out, checked before the scan. */
#ifndef TAVRIK_TOOLS_SCANNING_EXCLUSIONS_H
#define TAVRIK_TOOLS_SCANNING_EXCLUSIONS_H

#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::scanning {

/** A pattern as the walk takes it: without separators at its end, since "d/" means the folder d. */
std::string WithoutTrailingSeparators(std::string pattern);

/** Why a pattern, as the function above returns it, matches nothing in any scan, or nothing below `paths`, all that are
 * scanned; "" when it may match. No paths: nothing is known about them. */
std::string WhyNothingMatches(const std::string &pattern, const std::vector<std::filesystem::path> &paths);

} // namespace tavrik::scanning

#endif
