/* Measures of a region of a file. */
#ifndef TAVRIK_EVALUATION_MEASURES_H
#define TAVRIK_EVALUATION_MEASURES_H

#include <cstdint>
#include <optional>

#include "base/file_bytes.h"

namespace tavrik::evaluation {

/** The Shannon entropy of a region's bytes in thousandths of a bit a byte, rounded to the nearest; nothing when the
 * region is absent or cannot be read. */
std::optional<uint32_t> MeasureEntropy(base::FileBytes &bytes, base::Region region);

/** The CRC-32 of a region's bytes; nothing when the region is absent or cannot be read. */
std::optional<uint32_t> MeasureCrc32(base::FileBytes &bytes, base::Region region);

} // namespace tavrik::evaluation

#endif
