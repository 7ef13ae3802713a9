/* The boolean expressions that rules combine their strings by. */
#ifndef TAVRIK_DATABASE_GENERATOR_EXPRESSIONS_H
#define TAVRIK_DATABASE_GENERATOR_EXPRESSIONS_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "database/generator/random.h"

namespace tavrik::generator {

/** Expressions by their number of letters. */
using ExpressionPool = std::map<std::size_t, std::vector<std::string>>;

/** `count` distinct expressions, none of `taken`; they run over 2 to 13 letters, the smaller the more, and those that
 * authors write most are among them. */
ExpressionPool MakeExpressions(std::size_t count, const std::set<std::string> &taken, Random &random);

} // namespace tavrik::generator

#endif
