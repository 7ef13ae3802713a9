/* What a rule could ask of a file: each value of the file as a row of a rule. */
#ifndef TAVRIK_DRAFT_ROWS_H
#define TAVRIK_DRAFT_ROWS_H

#include <cstddef>
#include <vector>

#include "evaluation/features.h"
#include "rules/model.h"

namespace tavrik::draft {

/** A rule that asks for one thing. A function has the module that it comes from beside it, a method its object. */
using Row = rules::Rule;

/** Elements of one list and resource type that become rows: a file may have hundreds of thousands. */
inline constexpr std::size_t kMostRows = 1024;

/** All values of a PE file but for the strings in it, as rows that ask for them exactly, in the order of a rule's
 * lists. */
std::vector<Row> RowsOf(evaluation::Features &features);

/** Adds what a row asks for to a rule. The rule's own elements stay as they are. */
void Add(rules::Rule &rule, const Row &row);

} // namespace tavrik::draft

#endif
