// Imports, exports and resources: conditions on the tables that sections hold.
#include <algorithm>

#include "base/crc32.h"
#include "database/generator/extract.h"

namespace tavrik::generator {
namespace {

using rules::Operator;

void AddIndexed(const Source &source, std::vector<rules::IndexedCondition> &list) {
    constexpr uint32_t kLastDescriptor = 10;
    constexpr uint32_t kFields = 5;
    std::vector<rules::IndexedCondition> pool;
    const auto &imports = source.facts.Imports();
    for (uint32_t i = 0; i < std::min<std::size_t>(imports.size(), kLastDescriptor + 1); ++i)
        for (uint32_t field = 0; field < kFields; ++field)
            pool.push_back({static_cast<uint8_t>(i), static_cast<uint8_t>(field), Operator::Equal,
                            *source.facts.Read(imports[i].descriptor + 4 * field, 4)});
    if (pool.size() < source.plan.counts[kImportTable])
        FailShort(source.plan, "import descriptor fields");
    source.random.Shuffle(pool);
    pool.resize(source.plan.counts[kImportTable]);
    std::ranges::sort(pool, [](const rules::IndexedCondition &a, const rules::IndexedCondition &b) {
        return a.index != b.index ? a.index < b.index : a.field < b.field;
    });
    list = std::move(pool);
}

// The kernel's module comes first when it is asked for by name or many functions are wanted.
std::vector<std::size_t> ChooseModules(const Source &source) {
    const auto &imports = source.facts.Imports();
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < imports.size(); ++i)
        places.push_back(i);
    if (places.size() < source.plan.counts[kImportModules])
        FailShort(source.plan, "import modules");
    source.random.Shuffle(places);
    const auto move_to_front = [&](auto matches) {
        if (const auto found = std::ranges::find_if(places, matches); found != places.end())
            std::swap(places.front(), *found);
    };
    const uint32_t functions = source.plan.counts[kImportFunctions];
    if (source.plan.many_modules && imports.at(source.plan.named_module).functions.size() >= functions)
        move_to_front([&](std::size_t place) { return place == source.plan.named_module; });
    else if (source.plan.kernel_name || functions > 1)
        move_to_front([&](std::size_t place) {
            const std::string &module = imports[place].module;
            return module.starts_with("kernel32") || module.starts_with("KERNEL32");
        });
    places.resize(source.plan.counts[kImportModules]);
    std::ranges::sort(places);
    return places;
}

void AddImports(const Source &source, rules::Rule &rule) {
    constexpr uint32_t kAnyPercent = 60;
    constexpr uint32_t kCasedPercent = 30;
    Random &random = source.random;
    const auto &imports = source.facts.Imports();
    const std::vector<std::size_t> places = ChooseModules(source);
    std::vector<std::vector<rules::ImportFunction>> functions;
    for (const std::size_t place : places) {
        const bool by_position = source.plan.many_modules || !random.Chance(kAnyPercent);
        rule.import_modules.push_back({by_position ? static_cast<int16_t>(place) : int16_t{-1},
                                       random.Chance(kCasedPercent) ? rules::kNameCased : uint8_t{0}, Operator::Equal,
                                       imports[place].module});
        functions.emplace_back();
        for (const std::string &name : imports[place].functions)
            functions.back().push_back({static_cast<uint16_t>(functions.size() - 1), Operator::Equal, name});
    }
    if (places.empty()) { // functions of any module
        functions.emplace_back();
        for (const ImportFacts &import : imports)
            for (const std::string &name : import.functions) {
                rules::ImportFunction function = {0, Operator::Equal, name};
                if (std::ranges::find(functions.back(), function) == functions.back().end())
                    functions.back().push_back(std::move(function));
            }
    }

    // One of each module, as far as they go, then whatever comes.
    std::vector<rules::ImportFunction> others;
    auto &chosen = rule.import_functions;
    const uint32_t wanted = source.plan.counts[kImportFunctions];
    for (auto &module : functions) {
        random.Shuffle(module);
        for (std::size_t i = 0; i < module.size(); ++i)
            (i == 0 && chosen.size() < wanted ? chosen : others).push_back(std::move(module[i]));
    }
    random.Shuffle(others);
    if (chosen.size() + others.size() < wanted)
        FailShort(source.plan, "import functions");
    while (chosen.size() < wanted) {
        chosen.push_back(std::move(others.back()));
        others.pop_back();
    }
    std::ranges::stable_sort(chosen, {}, &rules::ImportFunction::index);
}

void AddExports(const Source &source, rules::Rule &rule) {
    if (source.plan.counts[kExportModule] != 0)
        rule.export_module_names.push_back({Operator::Equal, source.specimen.export_module});
    if (source.specimen.exports.size() < source.plan.counts[kExportFunctions])
        FailShort(source.plan, "exports");
    for (uint32_t i = 0; i < source.plan.counts[kExportFunctions]; ++i)
        rule.export_functions.push_back({Operator::Equal, source.specimen.exports[i]});
}

// Each entry shows something of its own: its number, its name or its checksum.
void AddResourceEntries(const Source &source, std::vector<rules::ResourceEntry> &list) {
    constexpr uint32_t kLanguagePercent = 75;
    constexpr uint32_t kNumberPercent = 88;
    constexpr uint32_t kChecksumPercent = 60;
    Random &random = source.random;
    std::vector<ResourceFacts> resources = source.facts.Resources();
    random.Shuffle(resources);
    for (const uint16_t type : source.plan.resource_types) {
        const auto found = std::ranges::find_if(
            resources, [&](const ResourceFacts &resource) { return resource.type.number == type; });
        if (found == resources.end())
            FailShort(source.plan, "resources");
        rules::ResourceEntry entry;
        entry.type = type;
        entry.name = found->entry.name;
        entry.id = random.Chance(kNumberPercent) ? found->entry.number : rules::kAnyResource;
        entry.language = random.Chance(kLanguagePercent) ? found->language : uint16_t{0};
        const bool is_any = entry.id == rules::kAnyResource && entry.name.empty();
        if (is_any || random.Chance(kChecksumPercent))
            entry.crc32 = base::Crc32(source.facts.Bytes(found->data));
        list.push_back(std::move(entry));
        resources.erase(found);
    }
    std::ranges::stable_sort(list, [](const rules::ResourceEntry &a, const rules::ResourceEntry &b) {
        return a.type != b.type ? a.type < b.type : a.id < b.id;
    });
}

} // namespace

void ExtractTables(const Source &source, rules::Rule &rule) {
    AddIndexed(source, rule.indexed_conditions);
    AddImports(source, rule);
    AddExports(source, rule);
    AddResourceEntries(source, rule.resource_entries);
    rule.resource_type_entries = source.specimen.resource_types;
    rule.resource_strings = source.specimen.resource_strings;
}

} // namespace tavrik::generator
