/* What each generated rule holds, decided before any file is made: how many elements of each list, which kinds of them
 * the profile counts, and from which archetype the rule's specimen comes. */
#ifndef TAVRIK_DATABASE_GENERATOR_PLAN_H
#define TAVRIK_DATABASE_GENERATOR_PLAN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "database/generator/archetypes.h"
#include "rules/model.h"

namespace tavrik::generator {

/** The sixteen lists in the order of the record, by the names of their blocks: kHeader and so on. */
enum List : std::size_t {
#define TAVRIK_LIST(member, Element, item, word, flag) k##item,
#include "rules/lists.def"
    kListCount,
};

/** Whether a rule tests a value of which the profile counts the usual one. */
enum class CountedTest : uint8_t { None, Usual, Other };

/** The import descriptors of specimens with many: as many positions as rules name. */
inline constexpr uint32_t kManyModules = 21;

/** The greatest window start of a string. */
inline constexpr uint32_t kFarPosition = 65520;

/** Which resource a resource_strings element reads. */
struct StringKey {
    uint32_t type;
    uint32_t key;
};

struct RulePlan {
    uint32_t rule_id = 0;
    std::string detection_name;
    const Archetype *archetype = nullptr;
    uint32_t family = 0;   // rules of one family share their author's habits
    uint64_t seed = 0;     // of everything that is this rule's own
    uint32_t traits = 0;   // attribute_b
    bool is_stale = false; // stored_flags differ from the computed ones
    bool tests_characteristics = false;
    CountedTest vb_thread_count = CountedTest::None;
    CountedTest vb_version = CountedTest::None;
    bool blank_names = false;     // all sections are unnamed
    bool kernel_name = false;     // names "KERNEL32.dll" in this spelling
    bool many_sections = false;   // the specimen has all 34 sections that selectors can number
    bool many_modules = false;    // and this one kManyModules import descriptors
    uint32_t named_module = 0;    // with many modules: the position that the rule should name, if it can
    bool many_objects = false;    // and this one 40 Visual Basic objects
    bool far_string = false;      // a string at kFarPosition
    bool number_resource = false; // a string in a resource other than the first
    uint8_t section_tails = 0;    // section names of strings followed by other bytes
    std::array<uint32_t, kListCount> counts = {};
    std::string expression;
    std::vector<uint8_t> string_kinds;      // of each element of strings
    std::vector<uint8_t> measure_regions;   // of each measure
    std::vector<uint16_t> resource_types;   // of each element of resource_entries
    std::vector<uint32_t> resource_numbers; // `type` of each element of resource_type_entries
    std::vector<StringKey> string_keys;     // of each element of resource_strings

    bool IsVisualBasic() const { return archetype->toolchain == Toolchain::VisualBasic; }
    bool IsLibrary() const { return archetype->target == 0; }
};

/** A place of the rule table: a hand-written rule, or one to be generated. */
struct Slot {
    const rules::Rule *written = nullptr; // the caller's; null: generated from `plan`
    RulePlan plan;
};

/** Decides the whole table, so that together with `written` (borrowed) it meets the profile. Throws
 * std::invalid_argument, with a sentence that says why, when `written` cannot be completed to the profile. */
std::vector<Slot> PlanTable(const rules::RuleSet &written);

} // namespace tavrik::generator

#endif
