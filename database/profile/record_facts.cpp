#include "database/profile/record_facts.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace tavrik::profile {

namespace {

constexpr std::uintptr_t kRecordAlignment = 16;

// Where each text that records name stands: one address for every distinct text, when they are shared.
class NameAddresses {
public:
    void Add(const char *name) { addresses_[name].insert(name); }

    std::size_t Shared(std::string_view name) const {
        const auto found = addresses_.find(name);
        return found == addresses_.end() ? 0 : found->second.size();
    }

    std::size_t Repeated() const {
        std::size_t count = 0;
        for (const auto &[name, places] : addresses_)
            count += places.size() > 1 ? std::size_t{1} : std::size_t{0};
        return count;
    }

private:
    std::map<std::string_view, std::set<const char *>> addresses_;
};

// Lists whose pointer does not agree with their count: null exactly when it is 0.
template <typename... Lists>
std::size_t WrongPointers(const Lists &...lists) {
    return (std::size_t{0} + ... +
            ((lists.elements == nullptr) == (lists.count == 0) ? std::size_t{0} : std::size_t{1}));
}

} // namespace

std::vector<FactResult> CheckRecords(std::span<HeuristicRule *const> table) {
    std::size_t misaligned = 0;
    std::size_t wrong_pointers = 0;
    std::size_t null_expressions = 0;
    NameAddresses names;
    for (const HeuristicRule *rule : table) {
        misaligned += reinterpret_cast<std::uintptr_t>(rule) % kRecordAlignment == 0 ? std::size_t{0} : std::size_t{1};
        null_expressions += rule->expression == nullptr ? std::size_t{1} : std::size_t{0};
        wrong_pointers += WrongPointers(
            rule->header_conditions, rule->section_conditions, rule->section_names, rule->strings,
            rule->indexed_conditions, rule->import_modules, rule->import_functions, rule->export_module_names,
            rule->export_functions, rule->resource_entries, rule->resource_type_entries, rule->resource_strings,
            rule->measure_conditions, rule->secondary_conditions, rule->object_names, rule->member_names);
        const auto add = [&names](const auto &list) {
            for (std::uint32_t index = 0; index < list.count; ++index)
                names.Add(list.elements[index].name);
        };
        add(rule->import_modules);
        add(rule->import_functions);
        add(rule->export_module_names);
        add(rule->export_functions);
        add(rule->object_names);
        add(rule->member_names);
        for (std::uint32_t index = 0; index < rule->resource_strings.count; ++index)
            names.Add(rule->resource_strings.elements[index].text);
    }
    return {
        {"records that stand off a 16-byte boundary", "0", std::to_string(misaligned)},
        {"lists whose pointer and count disagree", "0", std::to_string(wrong_pointers)},
        {"expressions that are null", "0", std::to_string(null_expressions)},
        {"addresses of the text KERNEL32.dll", "1", std::to_string(names.Shared(profile::kKernelName))},
        {"texts that stand in several places", "0", std::to_string(names.Repeated())},
    };
}

} // namespace tavrik::profile
