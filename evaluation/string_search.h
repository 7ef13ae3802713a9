/* The search for a rule's strings in a file. */
#ifndef TAVRIK_EVALUATION_STRING_SEARCH_H
#define TAVRIK_EVALUATION_STRING_SEARCH_H

#include <cstdint>
#include <optional>

#include "base/file_bytes.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** The file offset of the string's first occurrence in `region` within its window; `string` is in working form. Looks
 * only where its window lies. */
std::optional<uint64_t> FindString(base::FileBytes &bytes, base::Region region, const StringFeature &string);

/** Whether there is one. */
inline bool IsStringPresent(base::FileBytes &bytes, base::Region region, const StringFeature &string) {
    return FindString(bytes, region, string).has_value();
}

/** The same by the simplest method: every position of the region is compared. For tests of the other. */
bool IsStringPresentPlainly(base::FileBytes &bytes, base::Region region, const StringFeature &string);

} // namespace tavrik::evaluation

#endif
