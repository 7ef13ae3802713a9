#include "database/profile/record_facts.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

#include "rules/lists.h"

namespace tavrik::profile {

namespace {

constexpr std::uintptr_t kRecordAlignment = 16;

// Whether elements point to their name, instead of holding it.
template <typename Element>
constexpr bool HasNamePointer = requires(Element element) {
    requires std::is_pointer_v<std::remove_reference_t<decltype(element.name)>>;
};

// Where each text that records name is: one address for every distinct text, when they are shared.
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

} // namespace

std::vector<FactResult> CheckRecords(std::span<HeuristicRule *const> table) {
    std::size_t misaligned = 0;
    std::size_t wrong_pointers = 0;
    std::size_t null_expressions = 0;
    NameAddresses names;
    for (const HeuristicRule *rule : table) {
        misaligned += reinterpret_cast<std::uintptr_t>(rule) % kRecordAlignment == 0 ? std::size_t{0} : std::size_t{1};
        null_expressions += rule->expression == nullptr ? std::size_t{1} : std::size_t{0};
        const auto check_list = [&](auto, const auto &list) {
            // Null exactly when it is empty.
            wrong_pointers += (list.elements == nullptr) == (list.count == 0) ? std::size_t{0} : std::size_t{1};
            for (std::uint32_t index = 0; index < list.count; ++index) {
                const auto &element = list.elements[index];
                if constexpr (requires { element.text; })
                    names.Add(element.text);
                else if constexpr (HasNamePointer<decltype(element)>)
                    names.Add(element.name);
            }
        };
        rules::EachList(check_list, *rule);
    }
    return {
        {"records not on a 16-byte boundary", "0", std::to_string(misaligned)},
        {"lists whose pointer and count disagree", "0", std::to_string(wrong_pointers)},
        {"expressions that are null", "0", std::to_string(null_expressions)},
        {"addresses of the text KERNEL32.dll", "1", std::to_string(names.Shared(profile::kKernelName))},
        {"texts that occur more than once", "0", std::to_string(names.Repeated())},
    };
}

} // namespace tavrik::profile
