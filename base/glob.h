/* Glob patterns of file names. */
#ifndef TAVRIK_BASE_GLOB_H
#define TAVRIK_BASE_GLOB_H

#include <string_view>

namespace tavrik::base {

/** Whether the whole text matches the pattern: "*" matches any sequence of bytes, "?" one UTF-8 character, "[a-z]" and
 * "[!a-z]" one byte that is or is not in a set; any other byte, also a "[" without its "]", matches itself. Takes time
 * of at most the product of both lengths. */
bool MatchesGlob(std::string_view pattern, std::string_view text);

} // namespace tavrik::base

#endif
