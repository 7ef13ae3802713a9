#include "rules/model.h"

#include <algorithm>
#include <bit>

namespace tavrik::rules {

uint8_t ComputeFeatureFlags(const Rule &rule) {
    constexpr uint8_t kStructure = 1;
    constexpr uint8_t kContent = 2;

    const bool structure =
        !rule.header_conditions.empty() || !rule.section_conditions.empty() || !rule.section_names.empty() ||
        !rule.indexed_conditions.empty() || !rule.import_modules.empty() || !rule.import_functions.empty() ||
        !rule.export_module_names.empty() || !rule.export_functions.empty() || !rule.resource_entries.empty() ||
        !rule.resource_type_entries.empty() || !rule.resource_strings.empty() || !rule.secondary_conditions.empty() ||
        rule.attribute_b != 0;
    const bool content = !rule.strings.empty() || !rule.measure_conditions.empty() || !rule.object_names.empty() ||
                         !rule.member_names.empty() || rule.reserved != 0;
    return static_cast<uint8_t>((structure ? kStructure : 0) | (content ? kContent : 0));
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
