#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "database/profile/facts.h"
#include "database/profile/walk.h"
#include "rules/lists.h"

namespace tavrik::profile {

namespace {

using rules::Item;

// Elements of all lists whose name or text is `name`; those of a fixed width are not shared.
std::size_t Named(const rules::RuleSet &set, std::string_view name) {
    std::size_t count = 0;
    const auto visit = [&](auto tag, const auto &list) {
        constexpr bool kIsFixed = tag.kItem == Item::SectionNames || tag.kItem == Item::Resources ||
                                  tag.kItem == Item::ResourceTypes || tag.kItem == Item::ResourceStrings;
        for (const auto &element : list) {
            if constexpr (requires { element.text; })
                count += element.text == name ? 1U : 0U;
            else if constexpr (requires { element.name; } && !kIsFixed)
                count += element.name == name ? 1U : 0U;
        }
    };
    for (const rules::Rule &rule : set.rules)
        rules::EachList(visit, rule);
    return count;
}

bool HasTypes(const rules::RuleSet &set, std::initializer_list<int64_t> types) {
    const Values found = ValuesOf(set, &rules::Rule::resource_type_entries, &rules::ResourceTypeEntry::number);
    return std::ranges::all_of(types, [&](int64_t type) { return found.contains(type); });
}

} // namespace

std::vector<FactResult> DirectoryFacts(const rules::RuleSet &set) {
    return {
        {"indexed_conditions: index", "0..10",
         Text(ValuesOf(set, &rules::Rule::indexed_conditions, &rules::IndexedCondition::index))},
        {"indexed_conditions: field", "0..4",
         Text(ValuesOf(set, &rules::Rule::indexed_conditions, &rules::IndexedCondition::field))},
        {"import_modules: index", "-1..20",
         Text(ValuesOf(set, &rules::Rule::import_modules, &rules::ImportModule::index))},
        {"import_modules: option", "0, 1",
         Text(ValuesOf(set, &rules::Rule::import_modules, &rules::ImportModule::option))},
        {"import_modules named KERNEL32.dll", Count(kKernelNames),
         Count(CountOf(set, &rules::Rule::import_modules,
                       [](const rules::ImportModule &m) { return m.name == kKernelName; }))},
        {"elements named KERNEL32.dll", Count(kKernelNames), Count(Named(set, kKernelName))},
        {"import_modules: MSVBVM60.DLL", "present",
         Present(HasName(set, &rules::Rule::import_modules, "MSVBVM60.DLL"))},
        {"import_functions: index", "0..10",
         Text(ValuesOf(set, &rules::Rule::import_functions, &rules::ImportFunction::index))},
        {"import_functions: IsDebuggerPresent", "present",
         Present(HasName(set, &rules::Rule::import_functions, "IsDebuggerPresent"))},
        {"export_module_names: lpk.dll", "present",
         Present(HasName(set, &rules::Rule::export_module_names, "lpk.dll"))},
        {"export_functions: DllGetClassObject, ServiceMain", "present",
         Present(HasName(set, &rules::Rule::export_functions, "DllGetClassObject") &&
                 HasName(set, &rules::Rule::export_functions, "ServiceMain"))},
        {"resource_entries: most frequent types", "3, 14, 2, 10, 5, 1",
         ByFrequency(FrequenciesOf(set, &rules::Rule::resource_entries, &rules::ResourceEntry::type), 6)},
        {"resource_entries: id 0xFFFFFFFF", "some",
         Some(CountOf(set, &rules::Rule::resource_entries,
                      [](const rules::ResourceEntry &e) { return e.id == rules::kAnyResource; }),
              CountAll(set, &rules::Rule::resource_entries))},
        {"resource_entries: name empty", "most",
         Most(
             CountOf(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return e.name.empty(); }),
             CountAll(set, &rules::Rule::resource_entries))},
        {"resource_entries: named", "some",
         Some(CountOf(set, &rules::Rule::resource_entries,
                      [](const rules::ResourceEntry &e) { return !e.name.empty(); }),
              CountAll(set, &rules::Rule::resource_entries))},
        {"resource_entries: most frequent languages", "1033, 0",
         ByFrequency(FrequenciesOf(set, &rules::Rule::resource_entries,
                                   [](const rules::ResourceEntry &e) { return uint32_t{e.language}; }),
                     2)},
        {"resource_type_entries: type 0xFFFFFFFF", OutOf(kAnyResourceTypes, ProfileOf(Item::ResourceTypes).elements),
         OutOf(CountOf(set, &rules::Rule::resource_type_entries,
                       [](const rules::ResourceTypeEntry &e) { return e.number == rules::kAnyResource; }),
               CountAll(set, &rules::Rule::resource_type_entries))},
        {"resource_type_entries: types 1, 101 and 777", "present", Present(HasTypes(set, {1, 101, 777}))},
        {"resource_type_entries: param_a", "1, 2",
         Text(ValuesOf(set, &rules::Rule::resource_type_entries, &rules::ResourceTypeEntry::level))},
        {"resource_type_entries: param_b", "0, 1",
         Text(ValuesOf(set, &rules::Rule::resource_type_entries, &rules::ResourceTypeEntry::absent))},
        {"resource_strings: types by frequency", "16, 24, 6",
         ByFrequency(FrequenciesOf(set, &rules::Rule::resource_strings, &rules::ResourceString::type), SIZE_MAX)},
        {"resource_strings: key below 36", OutOf(kNamedStringKeys, ProfileOf(Item::ResourceStrings).elements),
         OutOf(CountOf(set, &rules::Rule::resource_strings,
                       [](const rules::ResourceString &s) { return s.key < kNamedStringKeyLimit; }),
               CountAll(set, &rules::Rule::resource_strings))},
    };
}

} // namespace tavrik::profile
