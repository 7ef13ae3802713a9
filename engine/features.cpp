#include "evaluation/features.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

#include "base/text.h"
#include "base/utf8.h"
#include "engine/failure.h"
#include "engine/scanner.h"
#include "engine/sized.h"
#include "rules/names.h"
#include "scanner/inspection.h"

using namespace tavrik;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

struct Feature {
    std::string name;
    bool is_text = false;
    uint64_t number = 0;
    std::string text;
};

using FeatureList = std::vector<Feature>;

// Hostile files can name more than anybody reads.
constexpr std::size_t kMostNamed = 1 << 16;

void AddNumber(FeatureList &list, std::string name, uint64_t number) {
    list.push_back({std::move(name), false, number, ""});
}

void AddText(FeatureList &list, std::string name, std::string_view text) {
    list.push_back({std::move(name), true, 0, base::Printable(text)});
}

uint32_t FieldOf(const void *structure, const rules::Field &field) {
    uint32_t value = 0;
    std::memcpy(&value, static_cast<const uint8_t *>(structure) + field.offset, field.width);
    return value;
}

void AddHeaders(FeatureList &list, evaluation::Features &features) {
    for (const rules::Field &field : rules::HeaderFields())
        if (const std::optional<uint32_t> value = features.Header(field.number))
            AddNumber(list, std::string(field.name), *value);
}

void AddSections(FeatureList &list, const evaluation::Features &features) {
    for (std::size_t index = 0; index < features.sections().size(); ++index) {
        const SectionHeader &section = features.sections()[index];
        AddText(list, fmt::format("section[{}].Name", index), evaluation::SectionName(section));
        for (const rules::Field &field : rules::SectionFields())
            AddNumber(list, fmt::format("section[{}].{}", index, field.name), FieldOf(&section, field));
    }
}

// Functions are named in alphabetical order: which thunk is whose is not a feature.
void AddImports(FeatureList &list, evaluation::Features &features) {
    pe::ImportTable &imports = features.Imports();
    for (std::size_t index = 0; index < imports.descriptors().size(); ++index) {
        const pe::ImportTable::Descriptor &descriptor = imports.descriptors()[index];
        if (descriptor.module)
            AddText(list, fmt::format("import[{}].module", index), *descriptor.module);
        const pe::ImportTable::Functions &functions = imports.FunctionsOf(index);
        std::vector<std::string> names(functions.begin(), functions.end());
        std::ranges::sort(names);
        for (const std::string &name : names)
            if (list.size() < kMostNamed)
                AddText(list, fmt::format("import[{}].function", index), name);
    }
}

void AddExports(FeatureList &list, evaluation::Features &features) {
    pe::ExportTable &exports = features.Exports();
    if (exports.module())
        AddText(list, "export.module", *exports.module());
    std::vector<std::string> names(exports.Names().begin(), exports.Names().end());
    std::ranges::sort(names);
    for (const std::string &name : names)
        if (list.size() < kMostNamed)
            AddText(list, "export.function", name);
}

void AddLabel(FeatureList &list, const std::string &name, const pe::ResourceLabel &label) {
    if (label.number != pe::kNoResourceNumber)
        AddNumber(list, name, label.number);
    else
        AddText(list, name, base::LossyUtf8Of(label.name));
}

void AddResources(FeatureList &list, evaluation::Features &features) {
    const std::vector<pe::Resource> &resources = features.Resources().resources;
    for (std::size_t index = 0; index < resources.size() && list.size() < kMostNamed; ++index) {
        const pe::Resource &resource = resources[index];
        AddLabel(list, fmt::format("resource[{}].type", index), resource.type);
        AddLabel(list, fmt::format("resource[{}].id", index), resource.entry);
        AddNumber(list, fmt::format("resource[{}].language", index), resource.language);
        AddNumber(list, fmt::format("resource[{}].size", index), resource.data.length);
        if (const std::optional<uint32_t> crc32 = features.ResourceCrc32(index))
            AddNumber(list, fmt::format("resource[{}].crc32", index), *crc32);
    }
}

} // namespace

} // namespace tavrik::engine

struct tavrik_features {
    engine::FeatureList list;
};

extern "C" tavrik_status tavrik_features_read(const tavrik_scanner *scanner, const tavrik_input *input,
                                              tavrik_cancel *cancel, tavrik_features **features, tavrik_error *error) {
    return Guard(error, [&] {
        Require(features != nullptr, "features");
        *features = nullptr;
        Require(scanner != nullptr, "scanner");
        engine::Input opened = scanner->OpenWithin(input, cancel);
        auto made = std::make_unique<tavrik_features>();
        scanner::Inspection inspection(*scanner->scanner, opened.watched());
        evaluation::Features &read = inspection.features();
        if (read.IsPe()) {
            engine::AddHeaders(made->list, read);
            engine::AddSections(made->list, read);
            engine::AddImports(made->list, read);
            engine::AddExports(made->list, read);
            engine::AddResources(made->list, read);
        }
        inspection.RequireRead(opened.name());
        *features = made.release();
    });
}

extern "C" void tavrik_features_free(tavrik_features *features) {
    delete features;
}

extern "C" size_t tavrik_features_count(const tavrik_features *features) {
    return features == nullptr ? 0 : features->list.size();
}

extern "C" tavrik_status tavrik_features_get(const tavrik_features *features, size_t index, tavrik_feature *feature) {
    return Guard(nullptr, [&] {
        Require(features != nullptr, "features");
        const engine::Feature &found = engine::At(features->list, index);
        engine::Give(feature, {0, found.is_text ? 1u : 0u, found.name.c_str(), found.number, found.text.c_str()},
                     "feature");
    });
}
