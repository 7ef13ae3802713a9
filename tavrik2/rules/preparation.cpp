#include "tavrik2/rules/preparation.h"

#include "tavrik2/rules/database.h"

namespace tavrik2 {
namespace {

uint8_t WorkingByte(uint8_t stored) {
    return static_cast<uint8_t>(stored - kStoredShift);
}

void DescrambleString(const StringFeature &feature) {
    for (uint32_t index = 0; index < feature.length; ++index)
        feature.bytes[index] = WorkingByte(feature.bytes[index]);
}

uint8_t ComputeFeatureFlags(const HeuristicRule &rule) {
    const uint32_t structure = rule.header_conditions.count | rule.section_conditions.count | rule.section_names.count |
                               rule.indexed_conditions.count | rule.import_modules.count | rule.import_functions.count |
                               rule.export_module_names.count | rule.export_functions.count |
                               rule.resource_entries.count | rule.resource_type_entries.count |
                               rule.resource_strings.count | rule.secondary_conditions.count | rule.attribute_b;
    const uint64_t content = rule.strings.count | rule.measure_conditions.count | rule.object_names.count |
                             rule.member_names.count | rule.reserved;
    return static_cast<uint8_t>((structure != 0 ? FEATURE_STRUCTURE : 0) | (content != 0 ? FEATURE_CONTENT : 0));
}

constinit bool g_prepared = false;

} // namespace

int PrepareRules(HeuristicRule *const *table, int32_t count) {
    if (table == nullptr)
        return 0;
    for (int32_t index = 0; index < count; ++index) {
        HeuristicRule &rule = *table[index];
        for (uint32_t element = 0; element < rule.strings.count; ++element)
            DescrambleString(rule.strings.elements[element]);
        rule.feature_flags = ComputeFeatureFlags(rule);
    }
    return 1;
}

void DescrambleNameTable(NameEntry *table, int32_t count) {
    for (int32_t index = 0; index < count; ++index) {
        for (uint8_t &byte : table[index]) {
            if (byte == 0)
                break;
            byte = WorkingByte(byte);
        }
    }
}

void PrepareDatabase() {
    if (g_prepared)
        return;
    PrepareRules(RuleTable, AsCount(RuleTableCount));
    DescrambleNameTable(NameTable1, AsCount(NameTable1Count));
    DescrambleNameTable(NameTable2, AsCount(NameTable2Count));
    DescrambleNameTable(NameTable3, AsCount(NameTable3Count));
    DescrambleNameTable(NameTable4, AsCount(NameTable4Count));
    g_prepared = true;
}

} // namespace tavrik2

extern "C" uint32_t HeurGetDetectionInfo(HeuristicRule *const **out_table, uint32_t *out_count) {
    if (out_table == nullptr || out_count == nullptr)
        return 0;
    *out_table = tavrik2::RuleTable;
    *out_count = tavrik2::RuleTableCount;
    return 1;
}
