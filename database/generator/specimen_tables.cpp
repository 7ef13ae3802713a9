#include <algorithm>
#include <set>

#include "database/generator/specimen_maker.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

namespace trait = rules::trait;

} // namespace

void SpecimenMaker::AddTables(pe::builder::Section &section) {
    section.pieces.push_back({.content = MakeImports()});
    const bool exports = plan_.counts[kExportFunctions] != 0 || plan_.counts[kExportModule] != 0 ||
                         Measures(rules::SectionRole::Export) || ReadsStrings(rules::StringKind::ExportSection);
    if (exports || (plan_.IsLibrary() && random_.Chance(60)))
        section.pieces.push_back({.content = MakeExports()});
}

pe::builder::ImportTable SpecimenMaker::MakeImports() {
    std::vector<const ModuleFunctions *> modules;
    const auto add = [&](const ModuleFunctions &module) {
        if (std::ranges::find(modules, &module) == modules.end())
            modules.push_back(&module);
    };
    for (const char letter : archetype_.modules)
        add(*std::ranges::find(Modules(), letter, &ModuleFunctions::letter));
    const uint32_t wanted =
        plan_.many_modules ? kManyModules : std::max(plan_.counts[kImportModules], plan_.counts[kImportTable] / 5 + 1);
    while (modules.size() < wanted) {
        const ModuleFunctions &module = random_.Pick(Modules());
        constexpr std::string_view kNotForPrograms = "BTXY";
        if (kNotForPrograms.find(module.letter) == std::string_view::npos)
            add(module);
    }
    if (Has(trait::kFewImports) && modules.size() > 3)
        modules.resize(3);

    pe::builder::ImportTable table;
    uint32_t left = rules::kFewImports;
    for (const ModuleFunctions *module : modules) {
        pe::builder::ImportedModule imported{SpellModule(*module), {}};
        const uint32_t available = static_cast<uint32_t>(module->functions.size());
        uint32_t count = random_.Between(std::min(3U, available), std::min(16U, available));
        count = std::max(count, std::min(plan_.counts[kImportFunctions], available));
        if (Has(trait::kFewImports)) {
            count = std::min(left - static_cast<uint32_t>(modules.size() - table.modules.size() - 1),
                             std::min(available, 4U));
            left -= count;
        }
        std::vector<std::string_view> functions(module->functions.begin(), module->functions.end());
        random_.Shuffle(functions);
        for (uint32_t i = 0; i < count; ++i) {
            if (functions[i].front() == '#')
                imported.functions.emplace_back(static_cast<uint16_t>(std::stoi(std::string(functions[i].substr(1)))));
            else
                imported.functions.emplace_back(std::string(functions[i]));
        }
        table.modules.push_back(std::move(imported));
    }
    return table;
}

// Linkers and authors differ in how they write the kernel's name.
std::string SpecimenMaker::SpellModule(const ModuleFunctions &module) {
    constexpr char kKernel = 'A';
    if (module.letter != kKernel)
        return std::string(module.name);
    if (plan_.kernel_name)
        return "KERNEL32.dll";
    return archetype_.toolchain == Toolchain::Packer || archetype_.toolchain == Toolchain::MinGw ? "KERNEL32.DLL"
                                                                                                 : "kernel32.dll";
}

pe::builder::ExportTable SpecimenMaker::MakeExports() {
    pe::builder::ExportTable table;
    table.module_name = random_.Chance(50) ? std::string(random_.Pick(ExportModules())) : SmallWord(random_) + ".dll";
    const uint32_t count = std::max(plan_.counts[kExportFunctions], random_.Between(1, 5));
    std::set<std::string> names;
    while (names.size() < count)
        names.insert(random_.Chance(75) ? std::string(random_.Pick(ExportNames())) : FamilyWord(random_.Next()));
    for (const std::string &name : names)
        table.functions.push_back({.name = name, .rva = kFirstAddress + random_.Below(0x300U)});
    specimen_.export_module = table.module_name;
    specimen_.exports.assign(names.begin(), names.end());
    random_.Shuffle(specimen_.exports);
    return table;
}

} // namespace tavrik::generator
