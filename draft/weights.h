/* How much a condition says about a family, by what it asks for. */
#ifndef TAVRIK_DRAFT_WEIGHTS_H
#define TAVRIK_DRAFT_WEIGHTS_H

#include "draft/rows.h"
#include "rules/items.h"

namespace tavrik::draft {

/** The list that a row is about. */
rules::Item ItemOf(const Row &row);

/** From 0, what every program has, to 100. Only the order counts. */
int WeightOf(const Row &row);

/** Whether another build of the same program has another value there: times, checksums, signatures, whole contents. */
bool IsOfOneBuild(const Row &row);

/** Whether values of this row may differ between files, as from the smallest to the largest. */
bool MayBeRange(const Row &row);

} // namespace tavrik::draft

#endif
