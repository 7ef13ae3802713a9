/* Names and texts of a file as numbers of 32 bits, so that a store can say that a file lacks one.
 *
 * A token is a hash: a file that has a name has its token, and one in some ten thousand that lack the name has it too.
 * So tokens only ever rule a file out. */
#ifndef TAVRIK_STORE_TOKENS_H
#define TAVRIK_STORE_TOKENS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "evaluation/features.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::store {

using Token = uint32_t;

/** The tokens that are kept of one file. */
inline constexpr std::size_t kMostTokens = 8192;

/** The tokens of a file. */
struct FileTokens {
    std::vector<Token> tokens; // ascending, each once; none when the file has too many
    bool are_complete = true;
};

/** The tokens of a file: imported modules and functions, exports, resources, texts of version resources and manifests,
 * names of Visual Basic objects and their methods. */
FileTokens TokensOf(evaluation::Features &features);

/** The tokens that every file has that the rule, in working form, matches; each once. */
std::vector<Token> NeededTokens(const HeuristicRule &rule);

} // namespace tavrik::store

#endif
