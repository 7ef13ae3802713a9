#include "draft/rows.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "evaluation/evaluator.h"
#include "pe/format.h"
#include "rules/lists.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::draft {

namespace {

using rules::MeasureRegion;
using rules::SectionRole;

constexpr uint32_t kMostObjects = 64; // of a Visual Basic project
constexpr std::size_t kMostTexts = 4; // of one key
constexpr uint32_t kStart = 0x40;     // bytes of the entry code whose CRC-32 is a row

// Collects the rows of one file.
class RowReader {
public:
    explicit RowReader(evaluation::Features &features) : features_(features) {}

    std::vector<Row> Read() {
        ReadTraits();
        ReadHeader();
        ReadSections();
        ReadImports();
        ReadExports();
        ReadResources();
        ReadTexts();
        ReadMeasures();
        ReadObjects();
        return std::move(rows_);
    }

private:
    template <typename Element>
    void Put(std::vector<Element> Row::*list, Element element) {
        Row row;
        (row.*list).push_back(std::move(element));
        rows_.push_back(std::move(row));
    }

    void ReadTraits() {
        for (const rules::NamedNumber &trait : rules::TraitNames()) {
            Row row;
            row.attribute_b = trait.number;
            rows_.push_back(std::move(row)); // those that the file lacks are removed with what it does not meet
        }
    }

    void ReadHeader() {
        for (uint16_t field = 0; field < rules::kHeaderFieldCount; ++field)
            if (const auto value = features_.Header(field))
                Put(&Row::header_conditions, {field, rules::Operator::Equal, *value});
    }

    void ReadSections() {
        std::vector<uint16_t> selectors;
        for (uint16_t i = 0; i <= rules::kMaxSectionIndex && i < features_.sections().size(); ++i)
            selectors.push_back(i);
        for (const SectionRole role : {SectionRole::Entry, SectionRole::Last})
            if (features_.SectionOf(static_cast<uint16_t>(role)))
                selectors.push_back(static_cast<uint16_t>(role));
        for (const uint16_t selector : selectors)
            for (const rules::Field &field : rules::SectionFields())
                if (const auto value = features_.SectionValue(selector, static_cast<uint8_t>(field.number)))
                    Put(&Row::section_conditions,
                        {selector, static_cast<uint8_t>(field.number), rules::Operator::Equal, *value});
        for (const uint16_t selector : selectors)
            Put(&Row::section_names,
                {selector, rules::Operator::Equal,
                 std::string(evaluation::SectionName(features_.sections()[*features_.SectionOf(selector)]))});
    }

    void ReadImports() {
        pe::ImportTable &imports = features_.Imports();
        const std::size_t count = std::min<std::size_t>(imports.descriptors().size(), UINT8_MAX);
        for (std::size_t i = 0; i < count; ++i)
            for (const rules::Field &field : rules::ImportTableFields())
                Put(&Row::indexed_conditions, {static_cast<uint8_t>(i), static_cast<uint8_t>(field.number),
                                               rules::Operator::Equal, imports.descriptors()[i].fields[field.number]});
        std::set<std::string> modules;
        for (const auto &descriptor : imports.descriptors())
            if (descriptor.module && modules.size() < kMostRows && modules.insert(*descriptor.module).second)
                Put(&Row::import_modules, {-1, 0, rules::Operator::Equal, *descriptor.module});
        std::size_t functions = 0;
        for (std::size_t i = 0; i < imports.descriptors().size() && functions < kMostRows; ++i) {
            const std::optional<std::string> &module = imports.descriptors()[i].module;
            if (!module)
                continue;
            const auto &names = imports.FunctionsOf(i);
            for (const std::string &name : std::set<std::string>(names.begin(), names.end())) {
                if (++functions > kMostRows)
                    break;
                Row row;
                row.import_modules.push_back({-1, 0, rules::Operator::Equal, *module});
                row.import_functions.push_back({0, rules::Operator::Equal, name});
                rows_.push_back(std::move(row));
            }
        }
    }

    void ReadExports() {
        if (features_.Exports().module())
            Put(&Row::export_module_names, {rules::Operator::Equal, *features_.Exports().module()});
        const auto &names = features_.Exports().Names();
        std::size_t count = 0;
        for (const std::string &name : std::set<std::string>(names.begin(), names.end()))
            if (count++ < kMostRows)
                Put(&Row::export_functions, {rules::Operator::Equal, name});
    }

    // The name of a type or entry as a rule can write it; nothing when it cannot.
    static std::optional<std::string> NameOf(const pe::ResourceLabel &label) {
        std::string name;
        for (const char16_t unit : label.name) {
            if (unit == 0 || unit > 0xFF)
                return std::nullopt;
            name += static_cast<char>(unit);
        }
        return name.size() <= rules::kMaxResourceName ? std::optional(name) : std::nullopt;
    }

    void ReadResources() {
        const auto &resources = features_.Resources().resources;
        std::set<uint32_t> types;
        std::map<uint32_t, std::size_t> counts;
        for (std::size_t i = 0; i < resources.size(); ++i) {
            const pe::Resource &resource = resources[i];
            const std::optional<std::string> name = NameOf(resource.entry);
            if (resource.type.number == rules::kAnyResource || !name || ++counts[resource.type.number] > kMostRows)
                continue;
            types.insert(resource.type.number);
            const auto language = static_cast<uint16_t>(resource.language <= UINT16_MAX ? resource.language : 0);
            Put(&Row::resource_entries,
                {resource.type.number, resource.entry.number, *name, language, features_.ResourceCrc32(i).value_or(0)});
        }
        for (const uint32_t type : types)
            Put(&Row::resource_type_entries, {type, "", 0, rules::kResourceTypeLevel, 0});
    }

    void PutTexts(uint32_t type, uint32_t id, uint32_t key) {
        ::ResourceString element = {};
        element.type = type;
        element.id = id;
        element.key = key;
        element.text = "";
        std::set<std::string> texts;
        for (const std::string &text : features_.Strings().Candidates(element, kMostTexts))
            if (!text.empty() && text.find('\0') == std::string::npos && texts.insert(text).second)
                Put(&Row::resource_strings, {type, id, "", 0, key, text});
    }

    void ReadTexts() {
        using namespace rules::resource_key;
        for (const rules::NamedNumber &key : rules::ResourceKeys())
            if (key.number != kAny)
                PutTexts(key.number <= kFixedProductVersion ? rules::kVersionResource : rules::kManifestResource,
                         rules::kAnyResource, key.number);
        std::size_t blocks = 0;
        for (const pe::Resource &resource : features_.Resources().resources) {
            if (resource.type.number != pe::resource_type::kString || resource.entry.number == 0 ||
                resource.entry.number > UINT16_MAX || ++blocks > kMostRows / pe::kStringsOfBlock)
                continue;
            for (uint32_t i = 0; i < pe::kStringsOfBlock; ++i)
                PutTexts(pe::resource_type::kString, resource.entry.number,
                         (resource.entry.number - 1) * pe::kStringsOfBlock + i);
        }
    }

    void PutEntropy(uint8_t region, uint8_t index) {
        constexpr double kThousandths = 1000;
        if (const auto entropy = features_.Entropy(region, index, 0))
            Put(&Row::measure_conditions, {region, rules::Measure::Entropy, 0, index, rules::Operator::Equal,
                                           rules::MeasureBits(*entropy / kThousandths)});
    }

    void PutCrc(uint8_t region, uint8_t index, uint32_t length) {
        if (const auto crc = features_.Crc32(region, index, length))
            Put(&Row::measure_conditions, {region, rules::Measure::Crc32, length, index, rules::Operator::Equal, *crc});
    }

    void ReadMeasures() {
        using rules::CodeOf;
        const std::size_t sections = std::min<std::size_t>(features_.sections().size(), rules::kMaxSectionIndex + 1u);
        PutEntropy(CodeOf(MeasureRegion::File), 0);
        PutEntropy(CodeOf(MeasureRegion::Overlay), 0);
        for (std::size_t i = 0; i < sections; ++i)
            PutEntropy(CodeOf(MeasureRegion::IndexedSection), static_cast<uint8_t>(i));
        PutCrc(CodeOf(MeasureRegion::DosStub), 0, 0);
        PutCrc(CodeOf(MeasureRegion::EntryCode), 0, kStart);
        for (std::size_t i = 0; i < sections; ++i)
            PutCrc(CodeOf(MeasureRegion::IndexedSection), static_cast<uint8_t>(i), 0);
    }

    void ReadObjects() {
        evaluation::VbProject &project = features_.Vb();
        const uint32_t count = std::min(project.ObjectCount(), kMostObjects);
        for (uint32_t i = 0; i < count; ++i)
            for (const rules::Field &field : rules::ObjectFields())
                if (const auto value = project.ObjectValue(i, field))
                    Put(&Row::secondary_conditions,
                        {static_cast<uint8_t>(i), static_cast<uint8_t>(field.number), rules::Operator::Equal, *value});
        for (uint32_t i = 0; i < count; ++i) {
            const std::optional<std::string> name = project.ObjectName(i);
            if (!name)
                continue;
            const rules::ObjectName object = {static_cast<uint16_t>(i), 0, rules::Operator::Equal, *name};
            Put(&Row::object_names, object);
            const std::vector<std::string> methods = project.MethodNames(i).value_or(std::vector<std::string>());
            for (const std::string &method : std::set<std::string>(methods.begin(), methods.end())) {
                Row row;
                row.object_names.push_back(object);
                row.member_names.push_back({0, 0, rules::Operator::Equal, method});
                rows_.push_back(std::move(row));
            }
        }
    }

    evaluation::Features &features_;
    std::vector<Row> rows_;
};

// The place of an element in a list, which gets it if it has none that is equal.
template <typename Element>
uint16_t PlaceOf(std::vector<Element> &list, const Element &element) {
    const auto found = std::ranges::find(list, element);
    const auto place = static_cast<uint16_t>(found - list.begin());
    if (found == list.end())
        list.push_back(element);
    return place;
}

} // namespace

std::vector<Row> RowsOf(evaluation::Features &features) {
    return RowReader(features).Read();
}

void Add(rules::Rule &rule, const Row &row) {
    rule.attribute_b |= row.attribute_b;
    const auto append = [&rule, &row](auto tag, auto &list, const auto &more) {
        using rules::Item;
        if constexpr (tag.kItem == Item::ImportModules || tag.kItem == Item::ObjectNames) {
            for (const auto &element : more)
                PlaceOf(list, element);
        } else if constexpr (tag.kItem == Item::ImportFunctions) {
            for (auto element : more) {
                element.index = PlaceOf(rule.import_modules, row.import_modules.at(element.index));
                list.push_back(std::move(element));
            }
        } else if constexpr (tag.kItem == Item::MemberNames) {
            for (auto element : more) {
                element.index = PlaceOf(rule.object_names, row.object_names.at(element.index));
                list.push_back(std::move(element));
            }
        } else {
            list.insert(list.end(), more.begin(), more.end());
        }
    };
    rules::EachList(append, rule, row);
    rule.stored_flags = rules::ComputeFeatureFlags(rule);
}

} // namespace tavrik::draft
