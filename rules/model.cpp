#include "rules/model.h"

#include <algorithm>
#include <bit>

#include "rules/lists.h"

namespace tavrik::rules {

uint8_t ComputeFeatureFlags(const Rule &rule) {
    unsigned flags = (rule.attribute_b != 0 ? kStructureFlag : 0u) | (rule.reserved != 0 ? kContentFlag : 0u);
    EachList([&](auto tag, const auto &list) { flags |= list.empty() ? 0u : tag.kFlag; }, rule);
    return static_cast<uint8_t>(flags);
}

uint8_t DefaultAnchor(const StringFeature &string) {
    const std::size_t length = std::min(string.bytes.size(), kMaxStringLength);
    std::size_t best = 0;
    std::size_t best_length = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const std::size_t begin = i;
        while (i < length && !string.mask[i])
            ++i;
        if (i - begin > best_length) {
            best = begin;
            best_length = i - begin;
        }
    }
    return static_cast<uint8_t>(best);
}

double MeasureEntropy(const MeasureCondition &condition) {
    return std::bit_cast<double>(condition.bits);
}

uint64_t MeasureBits(double entropy) {
    return std::bit_cast<uint64_t>(entropy);
}

uint32_t EntropyThousandths(double entropy) {
    constexpr double kBelow = 0.0;
    constexpr double kAbove = 8.001;
    return static_cast<uint32_t>(std::clamp(entropy, kBelow, kAbove) * 1000.0 + 0.5);
}

} // namespace tavrik::rules
