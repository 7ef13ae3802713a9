/* The names of everything that rules refer to by number: the rule language, the explanations and the generator all take
 * them from here. Constant data; lookups allocate nothing. */
#ifndef TAVRIK_RULES_NAMES_H
#define TAVRIK_RULES_NAMES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "rules/model.h"

namespace tavrik::rules {

/** How the canonical text writes a value. Values below 10 are the same in both. */
enum class Radix : uint8_t { Decimal, Hex };

/** The structure that a field is read from. */
enum class Origin : uint8_t {
    DosHeader,
    FileHeader,
    OptionalHeader, // of 32-bit images
    Derived,        // computed from the file; offset 0
    VbHeader,
    VbProject,
    VbObjectTable,
    VbComData,
    VbProject2,
    VbForm,      // the first entry of the form table
    VbExternals, // the table of external references
    SectionHeader,
    ImportDescriptor,
    VbObject,         // the public object descriptor
    VbObjectInfo,     // what the descriptor's ObjectInfo points to
    VbObjectOptional, // what follows the object information
};

/** A value that conditions can ask for. */
struct Field {
    uint16_t number;
    Origin origin;
    uint16_t offset; // bytes from the start of its structure
    uint8_t width;   // bytes, little-endian: 1, 2 or 4
    Radix radix;
    std::string_view name;
};

/** A number with its name. */
struct NamedNumber {
    uint32_t number;
    std::string_view name;
};

/** What a region's name takes in the text: nothing, `[index]`, or `("section name")`. */
enum class RegionArgument : uint8_t { None, Index, Name };

/** A region of the file in which strings are searched for and of which measures are taken. */
struct Region {
    std::string_view name;
    RegionArgument argument;
    uint8_t string_kind;  // the code that counts from the start; 0 where strings have none
    uint8_t measure_code; // 0 where measures have none
};

/** The number of header fields. */
inline constexpr std::size_t kHeaderFieldCount = 264;

/** The tables, each in ascending order of its numbers (the regions in the order of the documentation). */
std::span<const Field> HeaderFields();      // 0..263, no gap
std::span<const Field> SectionFields();     // 1..9
std::span<const Field> ImportTableFields(); // 0..4
std::span<const Field> ObjectFields();      // 0..43
std::span<const NamedNumber> Operators();
std::span<const NamedNumber> SectionRoles();
std::span<const NamedNumber> ResourceTypes();
std::span<const NamedNumber> ResourceKeys(); // 0..35, of version and manifest resources
std::span<const NamedNumber> TargetNames();  // the bits of attribute_a; number 0 is a library
std::span<const NamedNumber> TraitNames();   // the bits of attribute_b
std::span<const NamedNumber> MetadataKeys(); // by MetadataKey
std::span<const Region> Regions();

/** Find a field or a number in one of the tables above; null, an empty name or nothing when it is not there. Names are
 * compared exactly. */
const Field *FindField(std::span<const Field> fields, uint32_t number);
const Field *FindField(std::span<const Field> fields, std::string_view name);
std::string_view NameOf(std::span<const NamedNumber> names, uint32_t number);
std::optional<uint32_t> NumberOf(std::span<const NamedNumber> names, std::string_view name);

/** The text of a key in the string tables of version resources: its name, but "Assembly Version" for AssemblyVersion.
 */
std::string_view VersionKeyText(uint32_t key);

/** The text of an operator, such as "<=" or "has". */
std::string_view OperatorText(Operator op);

/** Find a region; null when there is none. Both codes of a string region lead to the same one. */
const Region *FindStringRegion(uint8_t string_kind);
const Region *FindMeasureRegion(uint8_t measure_code);
const Region *FindRegion(std::string_view name, RegionArgument argument);

} // namespace tavrik::rules

#endif
