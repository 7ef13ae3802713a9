/* The hash of grams. */
#ifndef TAVRIK_EVALUATION_GRAM_HASH_H
#define TAVRIK_EVALUATION_GRAM_HASH_H

#include <cstdint>

namespace tavrik::evaluation {

/** A gram times this is its hash, of which the upper bits count. */
inline constexpr uint32_t kGramMultiplier = 0x9E3779B1;

/** That of the second gram of a window. */
inline constexpr uint32_t kSecondMultiplier = 0x85EBCA77;

} // namespace tavrik::evaluation

#endif
