/* The published profile of the rule database: every count, range and set of values that the compiled-in rules are known
 * by, as one table of facts. The generator fills a rule set up to it, and the tools compare their counts with it. */
#ifndef TAVRIK_DATABASE_PROFILE_PROFILE_H
#define TAVRIK_DATABASE_PROFILE_PROFILE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"

namespace tavrik::profile {

/** One of the sixteen lists of a rule, with what the profile publishes about it. */
struct ListProfile {
    rules::Item item;
    std::string_view name;                    // of the record's field
    std::size_t (*size)(const rules::Rule &); // elements of this list in a rule
    std::size_t rules;                        // rules that use the list
    std::size_t largest;                      // most elements in one rule
    std::size_t elements;                     // elements of all rules
};

/** The sixteen lists in the order of the record. */
std::span<const ListProfile> ListProfiles();

/** That of one list. */
const ListProfile &ProfileOf(rules::Item item);

/** Counts that the generator has to meet element by element; they are part of the facts below too. */
inline constexpr std::size_t kRules = 6528;
inline constexpr uint32_t kFirstId = 1;
inline constexpr uint32_t kLastId = 9531;
inline constexpr std::size_t kIdExceptions = 5;
inline constexpr uint32_t kDoubleIds[] = {4192, 5072}; // each carried by two rules
inline constexpr std::size_t kDisagreeingFlags = 1924;

inline constexpr std::size_t kPrograms = 5606; // attribute_a 1
inline constexpr std::size_t kProgramsByCharacteristics = 5062;
inline constexpr std::size_t kLibraries = 771; // attribute_a 0
inline constexpr std::size_t kLibrariesByCharacteristics = 734;

inline constexpr std::size_t kExpressions = 772;
inline constexpr std::size_t kDistinctExpressions = 186;
inline constexpr std::size_t kExpressionsOverAll = 769; // as many letters as strings

inline constexpr std::size_t kVbThreadCounts = 616;
inline constexpr std::size_t kVbThreadCountsOne = 603;
inline constexpr std::size_t kVbVersions = 27;
inline constexpr std::size_t kVbVersions500 = 23;

inline constexpr std::size_t kEmptySectionNames = 91;
inline constexpr std::size_t kNamedSectionStrings = 507;
inline constexpr std::size_t kSectionTails = 3;
inline constexpr std::size_t kKernelNames = 306;
inline constexpr std::string_view kKernelName = "KERNEL32.dll";
inline constexpr std::size_t kAnyResourceTypes = 77; // of resource_type_entries
inline constexpr std::size_t kNamedStringKeys = 1953;
inline constexpr uint32_t kNamedStringKeyLimit = 36;
inline constexpr std::size_t kIndexedSectionMeasures = 6796;

/** A fact and what a rule set says of it. */
struct FactResult {
    std::string_view name;
    std::string expected;
    std::string actual;

    bool Holds() const { return expected == actual; }
};

/** Every fact of the profile, computed from `rules`, in the order of the record's fields. */
std::vector<FactResult> CheckProfile(const rules::RuleSet &rules);

} // namespace tavrik::profile

#endif
