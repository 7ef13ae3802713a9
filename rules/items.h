/* The parts of a rule that its text names: the sixteen lists, and the lines beside them. */
#ifndef TAVRIK_RULES_ITEMS_H
#define TAVRIK_RULES_ITEMS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavrik::rules {

/** The lists of a rule and its lines, as items of the text. */
enum class Item : uint8_t {
    Traits,
    StoredFlags,
    Reserved,
    Header,
    Sections,
    SectionNames,
    Strings,
    When,
    ImportTable,
    ImportModules,
    ImportFunctions,
    ExportModule,
    ExportFunctions,
    Resources,
    ResourceTypes,
    ResourceStrings,
    Measures,
    ObjectFields,
    ObjectNames,
    MemberNames,
    Count,
};

inline constexpr std::size_t kItemCount = static_cast<std::size_t>(Item::Count);

/** The word that each item begins with. */
inline constexpr std::array<std::string_view, kItemCount> kItemWords = {
    "traits",           "stored_flags", "reserved",       "header",           "sections",         "section_names",
    "strings",          "when",         "import_table",   "import_modules",   "import_functions", "export_module",
    "export_functions", "resources",    "resource_types", "resource_strings", "measures",         "object_fields",
    "object_names",     "member_names"};

constexpr std::string_view ItemWord(Item item) {
    return kItemWords[static_cast<std::size_t>(item)];
}

} // namespace tavrik::rules

#endif
