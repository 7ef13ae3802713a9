#include "evaluation/measures.h"

#include <array>
#include <cmath>

#include "base/crc32.h"
#include "rules/model.h"

namespace tavrik::evaluation {

std::optional<uint32_t> MeasureEntropy(base::FileBytes &bytes, base::Region region) {
    std::array<uint64_t, 256> counts = {};
    const bool is_read = bytes.ForPieces(region, 0, [&](std::span<const uint8_t> piece, uint64_t) {
        for (const uint8_t byte : piece)
            ++counts[byte];
        return true;
    });
    if (region.IsAbsent() || !is_read)
        return std::nullopt;
    double entropy = 0;
    for (const uint64_t count : counts)
        if (count != 0) {
            const double share = static_cast<double>(count) / static_cast<double>(region.length);
            entropy -= share * std::log2(share);
        }
    return rules::EntropyThousandths(entropy);
}

std::optional<uint32_t> MeasureCrc32(base::FileBytes &bytes, base::Region region) {
    uint32_t crc = 0;
    const bool is_read = bytes.ForPieces(region, 0, [&](std::span<const uint8_t> piece, uint64_t) {
        crc = base::Crc32(piece, crc);
        return true;
    });
    if (region.IsAbsent() || !is_read)
        return std::nullopt;
    return crc;
}

} // namespace tavrik::evaluation
