/* The plain evaluator: reads a rule's record and a file's features and says yes or no. */
#ifndef TAVRIK_EVALUATION_EVALUATOR_H
#define TAVRIK_EVALUATION_EVALUATOR_H

#include <cstddef>
#include <cstdint>
#include <functional>

#include "evaluation/features.h"
#include "evaluation/table_conditions.h"
#include "rules/items.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** Whether the rule, in working form, matches the file. */
bool Matches(const HeuristicRule &rule, Features &features);

/** The same answer in two steps for callers that stop between them: everything but the strings, and the strings.
 * Together they are Matches for a file that is PE and a rule that asks something. */
bool AsksSomething(const HeuristicRule &rule);
bool MeetsStructure(const HeuristicRule &rule, Features &features);
bool MeetsStrings(const HeuristicRule &rule, Features &features);

/** Whether the conditions on header fields are met whose values need no further reading (IsReadWithHeaders): false only
 * where MeetsStructure is. */
bool MeetsHeadersRead(const HeuristicRule &rule, Features &features);

/** The strings' part for callers that know otherwise which of the rule's strings, counted from 0, are present. */
bool MeetsStrings(const HeuristicRule &rule, const std::function<bool(std::size_t string)> &is_present);

/** Whether the elements `first` up to `first` + `count` of the rule's list `item` are met on their own. A run of
 * alternatives must not be cut. Items that are no lists (traits, the expression) are judged as a whole. */
bool MeetsElements(const HeuristicRule &rule, rules::Item item, std::size_t first, std::size_t count,
                   Features &features);

} // namespace tavrik::evaluation

#endif
