/* The search for a rule's strings in a file. */
#ifndef TAVRIK_EVALUATION_STRING_SEARCH_H
#define TAVRIK_EVALUATION_STRING_SEARCH_H

#include "base/file_bytes.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** Whether the string, in working form, is in `region` within its window. Looks only where its window lies. */
bool IsStringPresent(base::FileBytes &bytes, base::Region region, const StringFeature &string);

/** The same by the simplest method: every position of the region is compared. For tests of the other. */
bool IsStringPresentPlainly(base::FileBytes &bytes, base::Region region, const StringFeature &string);

} // namespace tavrik::evaluation

#endif
