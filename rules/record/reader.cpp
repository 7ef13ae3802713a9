#include "rules/record/reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tavrik::rules::record {

namespace {

constexpr uint8_t kStoredShift = 3;

// A text in a field of its own: up to its NUL or the field's end.
template <std::size_t kSize>
std::string FixedText(const char (&field)[kSize]) {
    const void *end = std::memchr(field, '\0', kSize);
    return {field, end == nullptr ? kSize : static_cast<std::size_t>(static_cast<const char *>(end) - field)};
}

Operator ToOperator(uint8_t op) {
    return static_cast<Operator>(op);
}

StringFeature ReadString(const ::StringFeature &e, RecordForm form) {
    StringFeature string;
    for (std::size_t i = 0; i < e.length; ++i) {
        const uint8_t byte = e.bytes[i];
        string.bytes += static_cast<char>(form == RecordForm::Stored ? byte - kStoredShift : byte);
        string.mask.set(i, (e.mask[i / 8] >> (i % 8) & 1) != 0);
    }
    string.anchor = e.param_a;
    string.window_start = e.param_b;
    string.window_length = e.param_c;
    string.kind = e.string_kind;
    string.index = e.param_d;
    if (e.string_section != nullptr) {
        constexpr std::size_t kBytes = 8;
        const std::size_t length = std::min<std::size_t>(e.string_section_length, kBytes);
        string.section_name.assign(e.string_section, length);
        string.section_tail.assign(e.string_section + length, kBytes - length);
        while (string.section_tail.ends_with('\0'))
            string.section_tail.pop_back();
    }
    string.options = e.param_e;
    string.drift = e.param_f;
    return string;
}

// Copies a list field: every element through `read`.
template <typename Element, typename List, typename Read>
void CopyList(std::vector<Element> &out, const List &list, Read read) {
    const uint32_t count = list.count;
    out.reserve(count);
    for (uint32_t i = 0; i < count; ++i)
        out.push_back(read(list.elements[i]));
}

} // namespace

Rule ReadRule(const HeuristicRule &record, RecordForm form) {
    Rule rule;
    CopyList(rule.header_conditions, record.header_conditions, [](const auto &e) {
        return HeaderCondition{e.field, ToOperator(e.op), e.value};
    });
    CopyList(rule.section_conditions, record.section_conditions, [](const auto &e) {
        return SectionCondition{e.section, e.field, ToOperator(e.op), e.value};
    });
    CopyList(rule.section_names, record.section_names, [](const auto &e) {
        return SectionNameCondition{e.section, ToOperator(e.op), FixedText(e.name)};
    });
    CopyList(rule.strings, record.strings, [form](const auto &e) { return ReadString(e, form); });
    rule.expression = record.expression;
    rule.rule_id = record.rule_id;
    rule.detection_name = FixedText(record.detection_name);
    rule.stored_flags = record.feature_flags;
    rule.attribute_a = record.attribute_a;
    rule.attribute_b = record.attribute_b;
    CopyList(rule.indexed_conditions, record.indexed_conditions, [](const auto &e) {
        return IndexedCondition{e.index, e.field, ToOperator(e.op), e.value};
    });
    CopyList(rule.import_modules, record.import_modules, [](const auto &e) {
        return ImportModule{e.index, e.option, ToOperator(e.op), e.name};
    });
    CopyList(rule.import_functions, record.import_functions, [](const auto &e) {
        return ImportFunction{e.index, ToOperator(e.op), e.name};
    });
    const auto read_export = [](const auto &e) { return ExportName{ToOperator(e.op), e.name}; };
    CopyList(rule.export_module_names, record.export_module_names, read_export);
    CopyList(rule.export_functions, record.export_functions, read_export);
    CopyList(rule.resource_entries, record.resource_entries, [](const auto &e) {
        return ResourceEntry{e.type, e.id, FixedText(e.name), e.language, e.value};
    });
    CopyList(rule.resource_type_entries, record.resource_type_entries, [](const auto &e) {
        return ResourceTypeEntry{e.type, FixedText(e.name), e.language, e.param_a, e.param_b};
    });
    CopyList(rule.resource_strings, record.resource_strings,
             [](const auto &e) { return ResourceString{e.type, e.id, FixedText(e.name), e.language, e.key, e.text}; });
    CopyList(rule.measure_conditions, record.measure_conditions, [](const auto &e) {
        uint64_t bits;
        std::memcpy(&bits, e.value, sizeof bits);
        return MeasureCondition{e.param_a, static_cast<Measure>(e.value_kind), e.param_b, e.param_c, ToOperator(e.op),
                                bits};
    });
    CopyList(rule.secondary_conditions, record.secondary_conditions, [](const auto &e) {
        return SecondaryCondition{e.index, e.field, ToOperator(e.op), e.value};
    });
    CopyList(rule.object_names, record.object_names, [](const auto &e) {
        return ObjectName{e.index, e.option, ToOperator(e.op), e.name};
    });
    CopyList(rule.member_names, record.member_names, [](const auto &e) {
        return MemberName{e.index, e.option, ToOperator(e.op), e.name};
    });
    rule.reserved = record.reserved;
    return rule;
}

RuleSet ReadRules(std::span<HeuristicRule *const> table, RecordForm form) {
    RuleSet set;
    set.rules.reserve(table.size());
    for (const HeuristicRule *record : table)
        set.rules.push_back(ReadRule(*record, form));
    return set;
}

} // namespace tavrik::rules::record
