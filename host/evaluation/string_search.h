/* Looking for a rule's strings in a file. */
#ifndef TAVRIK_HOST_EVALUATION_STRING_SEARCH_H
#define TAVRIK_HOST_EVALUATION_STRING_SEARCH_H

#include "host/evaluation/file_bytes.h"
#include "tavrik2/rules/heuristic_rule.h"

namespace tavrik::host {

/** Whether the string, in working form, stands in `region` within its window. Looks only where its window lies. */
bool IsStringPresent(FileBytes &bytes, Region region, const StringFeature &string);

/** The same question, answered in the plainest way: every position of the region is compared. For explanations, and to
 * test the other by. */
bool IsStringPresentPlainly(FileBytes &bytes, Region region, const StringFeature &string);

} // namespace tavrik::host

#endif
