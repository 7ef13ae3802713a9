/* Patterns of file names. */
#ifndef TAVRIK_BASE_GLOB_H
#define TAVRIK_BASE_GLOB_H

#include <string_view>

namespace tavrik::base {

/** Whether the whole text meets the pattern: "*" is any run of bytes, "?" one character, "[a-z]" and "[!a-z]" one byte
 * of a set or not of it, everything else itself; a "[" without its "]" too. Takes at most the product of both lengths
 * in steps. */
bool MatchesGlob(std::string_view pattern, std::string_view text);

} // namespace tavrik::base

#endif
