#include "rules/record/record_builder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

namespace tavrik::rules::record {

namespace {

constexpr std::size_t kSectionNameBytes = 8;

// Fills a field of its own with a text and zeros.
template <std::size_t size>
void SetText(char (&field)[size], std::string_view text) {
    if (text.size() >= size)
        throw std::invalid_argument("the text '" + std::string(text) + "' has more than " + std::to_string(size - 1) +
                                    " characters");
    std::copy(text.begin(), text.end(), field);
}

uint8_t Code(Operator op) {
    return static_cast<uint8_t>(op);
}

} // namespace

template <typename T>
T *RecordSet::Allocate(std::size_t count) {
    // The elements have no alignment and all their bytes are set to zero.
    static_assert(alignof(T) == 1);
    blocks_.push_back(std::make_unique<std::byte[]>(count * sizeof(T)));
    return reinterpret_cast<T *>(blocks_.back().get());
}

char *RecordSet::Keep(std::string_view text) {
    char *place = Allocate<char>(text.size() + 1);
    std::copy(text.begin(), text.end(), place);
    return place;
}

template <typename List, typename Element, typename Convert>
void RecordSet::BuildList(List &list, const std::vector<Element> &elements, Convert convert) {
    using Record = decltype(convert(elements.front()));
    if (elements.empty())
        return;
    auto *records = Allocate<Record>(elements.size());
    std::transform(elements.begin(), elements.end(), records, convert);
    list.elements = records;
    list.count = static_cast<uint32_t>(elements.size());
}

::StringFeature RecordSet::BuildString(const StringFeature &string) {
    ::StringFeature record = {};
    for (std::size_t i = 0; i < string.bytes.size(); ++i)
        if (string.mask[i])
            record.mask[i / 8] = static_cast<uint8_t>(record.mask[i / 8] | 1u << i % 8);
    record.bytes = reinterpret_cast<uint8_t *>(Keep(string.bytes));
    record.length = static_cast<uint8_t>(string.bytes.size());
    record.param_a = string.anchor;
    record.param_b = string.window_start;
    record.param_c = string.window_length;
    record.string_kind = string.kind;
    record.param_d = string.index;
    if (!string.section_name.empty()) {
        std::string name = string.section_name + string.section_tail;
        name.resize(kSectionNameBytes);
        record.string_section = Keep(name);
        record.string_section_length = static_cast<uint8_t>(string.section_name.size());
    }
    record.param_e = string.options;
    record.param_f = string.drift;
    return record;
}

HeuristicRule RecordSet::Build(const Rule &rule) {
    HeuristicRule record = {};
    BuildList(record.header_conditions, rule.header_conditions, [](const HeaderCondition &e) {
        return ::HeaderCondition{e.field, Code(e.op), e.value};
    });
    BuildList(record.section_conditions, rule.section_conditions, [](const SectionCondition &e) {
        return ::SectionCondition{e.section, e.field, Code(e.op), e.value};
    });
    BuildList(record.section_names, rule.section_names, [](const SectionNameCondition &e) {
        ::SectionNameCondition name = {e.section, Code(e.op), {}};
        SetText(name.name, e.name);
        return name;
    });
    BuildList(record.strings, rule.strings, [this](const StringFeature &e) { return BuildString(e); });
    record.expression = Keep(rule.expression);
    record.rule_id = rule.rule_id;
    SetText(record.detection_name, rule.detection_name);
    record.feature_flags = ComputeFeatureFlags(rule);
    record.attribute_a = rule.attribute_a;
    record.attribute_b = rule.attribute_b;
    BuildList(record.indexed_conditions, rule.indexed_conditions, [](const IndexedCondition &e) {
        return ::IndexedCondition{e.index, e.field, Code(e.op), e.value};
    });
    BuildList(record.import_modules, rule.import_modules, [this](const ImportModule &e) {
        return ::ImportModule{e.index, e.option, Code(e.op), Keep(e.name)};
    });
    BuildList(record.import_functions, rule.import_functions, [this](const ImportFunction &e) {
        return ::ImportFunction{e.index, Code(e.op), Keep(e.name)};
    });
    const auto build_export = [this](const ExportName &e) { return ::ExportName{Code(e.op), Keep(e.name)}; };
    BuildList(record.export_module_names, rule.export_module_names, build_export);
    BuildList(record.export_functions, rule.export_functions, build_export);
    BuildList(record.resource_entries, rule.resource_entries, [](const ResourceEntry &e) {
        ::ResourceEntry entry = {e.type, e.id, {}, e.language, {}, e.crc32};
        SetText(entry.name, e.name);
        return entry;
    });
    BuildList(record.resource_type_entries, rule.resource_type_entries, [](const ResourceTypeEntry &e) {
        ::ResourceTypeEntry entry = {e.number, {}, e.language, {}, e.level, e.absent};
        SetText(entry.name, e.name);
        return entry;
    });
    BuildList(record.resource_strings, rule.resource_strings, [this](const ResourceString &e) {
        ::ResourceString string = {e.type, e.id, {}, e.language, {}, e.key, Keep(e.text)};
        SetText(string.name, e.name);
        return string;
    });
    BuildList(record.measure_conditions, rule.measure_conditions, [](const MeasureCondition &e) {
        ::MeasureCondition measure = {e.region, static_cast<uint8_t>(e.measure), e.length, e.index, Code(e.op), {}};
        std::memcpy(measure.value, &e.bits, sizeof(measure.value));
        return measure;
    });
    BuildList(record.secondary_conditions, rule.secondary_conditions, [](const SecondaryCondition &e) {
        return ::SecondaryCondition{e.index, e.field, Code(e.op), e.value};
    });
    BuildList(record.object_names, rule.object_names, [this](const ObjectName &e) {
        return ::ObjectName{e.index, e.option, Code(e.op), Keep(e.name)};
    });
    BuildList(record.member_names, rule.member_names, [this](const MemberName &e) {
        return ::MemberName{e.index, e.option, Code(e.op), Keep(e.name)};
    });
    record.reserved = rule.reserved;
    return record;
}

RecordSet::RecordSet(const RuleSet &set) {
    records_.reserve(set.rules.size());
    for (const Rule &rule : set.rules)
        records_.push_back(Build(rule));
    for (HeuristicRule &record : records_)
        table_.push_back(&record);
}

} // namespace tavrik::rules::record
