/* Near misses in words and as JSON. */
#ifndef TAVRIK_SCANNER_NEAR_REPORT_H
#define TAVRIK_SCANNER_NEAR_REPORT_H

#include <string>

#include "base/json.h"
#include "scanner/near_miss.h"

namespace tavrik::scanner {

/** One condition: "SizeOfCode is 0x6a00, wanted 0x6e00..0x7500". */
std::string ConditionText(const FailedCondition &condition);

/** What it is: "near miss of entry 42: NSIS 3 Unicode", "unknown build: cabinet". */
std::string NearTitle(const NearMiss &miss);

/** A near miss without line ends: "near miss of entry 42: Nullsoft installer, offset 0x1a00, ...". At most
 * kMostShownConditions conditions are listed. */
std::string NearText(const NearMiss &miss);

inline constexpr std::size_t kMostShownConditions = 4;

/** The object of a near miss, with all conditions; see docs/json.md. */
base::Json NearObject(const NearMiss &miss);

} // namespace tavrik::scanner

#endif
