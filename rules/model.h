/* A rule in memory: the contents of the binary record, with one vector for each of its sixteen lists (rules/lists.def)
 * and every string in working form. The order of the elements is the order of the record and never changes. */
#ifndef TAVRIK_RULES_MODEL_H
#define TAVRIK_RULES_MODEL_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tavrik::rules {

/** What a condition asks of the file's value. The numbers are those of the record. */
enum class Operator : uint8_t {
    Equal = 1,
    NotEqual = 2,
    Less = 3,
    Greater = 4,
    AtMost = 5,
    AtLeast = 6,
    HasBits = 7, // every bit of the rule's value is set in the file's value
};

inline constexpr uint16_t kMaxSectionIndex = 33;

/** Selects a section by its role; smaller numbers are positions in the section table. The first three occur in section
 * names only. */
enum class SectionRole : uint16_t {
    Any = 505,
    AnyCode = 506,
    AnyData = 507,
    Last = 600,
    Entry = 601,
    Code = 602,
    Data = 603,
    Import = 604,
    Resource = 605,
    Export = 606,
    Relocation = 607,
    Tls = 608,
    Largest = 609,
    NextToLast = 610,
};

inline constexpr auto kFirstNameOnlyRole = static_cast<uint16_t>(SectionRole::Any);
inline constexpr auto kLastNameOnlyRole = static_cast<uint16_t>(SectionRole::AnyData);
inline constexpr auto kFirstSectionRole = static_cast<uint16_t>(SectionRole::Last);
inline constexpr auto kLastSectionRole = static_cast<uint16_t>(SectionRole::NextToLast);

/** Whether a selector of a section name leaves open which of several sections has the name. */
constexpr bool IsAnySection(uint16_t selector) {
    return selector >= kFirstNameOnlyRole && selector <= kLastNameOnlyRole;
}

/** Where a string is searched for. The odd code measures positions from the region's start; the even code that follows
 * it measures them from the region's end. */
enum class StringKind : uint8_t {
    File = 1,
    Headers = 3,
    Overlay = 5,
    EntryCode = 7,
    EntrySection = 9,
    LastSection = 11,
    CodeSection = 13,
    NamedSection = 15,
    IndexedSection = 17,
    ResourceSection = 19,
    ImportSection = 21,
    ResourceData = 23,
    ExportSection = 25,
    LargestSection = 27,
    DosStub = 29,
    VisualBasic = 31,
};

inline constexpr uint8_t kMaxStringKind = 32;

/** Whether positions of a string of this kind count from the end of its region. */
constexpr bool FromEnd(uint8_t string_kind) {
    return string_kind % 2 == 0;
}

/** The kind of the same region that counts positions from the region's start. */
constexpr uint8_t ForwardKind(uint8_t string_kind) {
    return static_cast<uint8_t>(FromEnd(string_kind) ? string_kind - 1 : string_kind);
}

/** Which bytes a measure covers. 61 + k is the section of role 600 + k. */
enum class MeasureRegion : uint8_t {
    IndexedSection = 60,
    FirstRole = 61,
    LastRole = 71,
    File = 72,
    Headers = 73,
    Overlay = 74,
    EntryCode = 75,
    ResourceData = 76,
    DosStub = 77,
    VisualBasic = 78,
};

/** What is measured. */
enum class Measure : uint8_t {
    Entropy = 1, // a double, bits per byte
    Crc32 = 2,   // a u32
};

inline constexpr uint8_t kStringNoCase = 1; // bit of StringFeature::options: ASCII letters match in either case
inline constexpr uint8_t kStringWide = 2;   // bit of StringFeature::options: a zero byte follows each byte

inline constexpr uint8_t kNameCased = 1;  // bit of a name's option: letter case counts
inline constexpr uint8_t kNamePrefix = 2; // bit of a name's option: the file's name may go on after the rule's

inline constexpr uint32_t kAnyResource = 0xFFFFFFFF; // as a resource's type or id: any

inline constexpr uint32_t kResourceTypeLevel = 1;  // ResourceTypeEntry::level: a type, the root's children
inline constexpr uint32_t kResourceEntryLevel = 2; // ResourceTypeEntry::level: an entry, the types' children

inline constexpr std::size_t kMaxStringLength = 128;    // bytes of a string feature
inline constexpr std::size_t kMaxSectionName = 8;       // characters
inline constexpr std::size_t kMaxDetectionName = 29;    // characters
inline constexpr std::size_t kMaxResourceName = 29;     // characters
inline constexpr std::size_t kMaxStrings = 26;          // as many as there are letters
inline constexpr std::size_t kMaxExportModuleNames = 1; // elements

struct HeaderCondition {
    uint16_t field = 0;
    Operator op = Operator::Equal;
    uint32_t value = 0;

    bool operator==(const HeaderCondition &) const = default;
};

struct SectionCondition {
    uint16_t section = 0; // an index or a SectionRole
    uint8_t field = 0;
    Operator op = Operator::Equal;
    uint32_t value = 0;

    bool operator==(const SectionCondition &) const = default;
};

struct SectionNameCondition {
    uint16_t section = 0; // an index or a SectionRole
    Operator op = Operator::Equal;
    std::string name; // at most kMaxSectionName characters

    bool operator==(const SectionNameCondition &) const = default;
};

struct StringFeature {
    std::string bytes;                  // the string itself, any bytes, 1..kMaxStringLength
    std::bitset<kMaxStringLength> mask; // set: the position matches any byte; only below bytes.size()
    uint8_t anchor = 0;                 // param_a: a position where a search for the string best begins
    uint16_t window_start = 0;          // param_b: bytes from the region's start or end
    uint16_t window_length = 0;         // param_c: how many positions; 0: all that follow
    uint8_t kind = 0;                   // a StringKind, or one more for its from-the-end form
    uint8_t index = 0;                  // param_d: number of the section or resource
    std::string section_name;           // of StringKind::NamedSection, at most kMaxSectionName characters; else empty
    std::string section_tail;           // bytes that follow the name in its 8 bytes, without the final zeros
    uint8_t options = 0;                // param_e: kStringNoCase, kStringWide
    uint16_t drift = 0;                 // param_f: bytes that the window grows by at both ends

    bool operator==(const StringFeature &) const = default;
};

/** A condition on field `field` of import descriptor `index`. */
struct IndexedCondition {
    uint8_t index = 0;
    uint8_t field = 0;
    Operator op = Operator::Equal;
    uint32_t value = 0;

    bool operator==(const IndexedCondition &) const = default;
};

struct ImportModule {
    int16_t index = -1; // position of the import descriptor; -1: any
    uint8_t option = 0; // kNameCased, kNamePrefix
    Operator op = Operator::Equal;
    std::string name;

    bool operator==(const ImportModule &) const = default;
};

struct ImportFunction {
    uint16_t index = 0; // element of the rule's import_modules that the function comes from
    Operator op = Operator::Equal;
    std::string name; // or "#" and an ordinal in decimal

    bool operator==(const ImportFunction &) const = default;
};

struct ExportName {
    Operator op = Operator::Equal;
    std::string name;

    bool operator==(const ExportName &) const = default;
};

struct ResourceEntry {
    uint32_t type = kAnyResource;
    uint32_t id = kAnyResource;
    std::string name;      // empty: any
    uint16_t language = 0; // 0: any
    uint32_t crc32 = 0;    // `value`: of the resource's data; 0: any

    bool operator==(const ResourceEntry &) const = default;
};

struct ResourceTypeEntry {
    uint32_t number = kAnyResource; // `type`: number of the type or entry
    std::string name;               // empty: any
    uint16_t language = 0;          // 0: any
    uint32_t level = 0;             // param_a: kResourceTypeLevel, kResourceEntryLevel
    uint32_t absent = 0;            // param_b: 1 when the file must not have it

    bool operator==(const ResourceTypeEntry &) const = default;
};

struct ResourceString {
    uint32_t type = 0;
    uint32_t id = kAnyResource;
    std::string name;      // empty: any
    uint16_t language = 0; // 0: any
    uint32_t key = 0;
    std::string text;

    bool operator==(const ResourceString &) const = default;
};

struct MeasureCondition {
    uint8_t region = 0; // param_a: a MeasureRegion
    Measure measure = Measure::Entropy;
    uint32_t length = 0; // param_b: bytes from the region's start; 0: all
    uint8_t index = 0;   // param_c: number of the section or resource
    Operator op = Operator::Equal;
    uint64_t bits = 0; // the eight bytes of the value, read as a little-endian number

    bool operator==(const MeasureCondition &) const = default;
};

/** A condition on field `field` of the Visual Basic object at position `index`. */
struct SecondaryCondition {
    uint8_t index = 0;
    uint8_t field = 0;
    Operator op = Operator::Equal;
    uint32_t value = 0;

    bool operator==(const SecondaryCondition &) const = default;
};

struct ObjectName {
    uint16_t index = 0; // position of the object in the project
    uint8_t option = 0; // kNameCased, kNamePrefix
    Operator op = Operator::Equal;
    std::string name;

    bool operator==(const ObjectName &) const = default;
};

struct MemberName {
    uint16_t index = 0; // element of the rule's object_names that the member belongs to
    uint8_t option = 0; // kNameCased, kNamePrefix
    Operator op = Operator::Equal;
    std::string name;

    bool operator==(const MemberName &) const = default;
};

/** What a text says about a rule besides its conditions; records have no place for it. */
enum class MetadataKey : uint8_t { Author, Date, Reference, Description, Sample };

/** One line of it: a date is written 2026-01-31; a sample is the digest of a file that the rule was written for. */
struct MetadataEntry {
    MetadataKey key = MetadataKey::Author;
    std::string text;

    bool operator==(const MetadataEntry &) const = default;
};

/** A rule: its sixteen lists, each a vector, and its single values. */
struct Rule {
#define TAVRIK_LIST(member, Element, item, word, flag) std::vector<Element> member;
#include "rules/lists.def"
    std::string expression; // over the strings, character by character as written; empty when the rule has none
    uint32_t rule_id = 0;
    std::string detection_name; // at most kMaxDetectionName characters
    uint8_t stored_flags = 0;   // feature_flags before preparation
    uint32_t attribute_a = 0;   // the target: bits of TargetNames(), 0 for a library
    uint32_t attribute_b = 0;   // the traits: bits of TraitNames()
    uint64_t reserved = 0;
    std::vector<MetadataEntry> metadata; // of rules that were read from a text

    bool operator==(const Rule &) const = default;
};

/** Rules in the order of the table that holds them. */
struct RuleSet {
    std::vector<Rule> rules;

    bool operator==(const RuleSet &) const = default;
};

/** The feature_flags that preparation computes for `rule`: bit values 1 (structure) and 2 (content). */
uint8_t ComputeFeatureFlags(const Rule &rule);

/** The anchor that a string has when its author names none: the first position of its longest stretch without
 * wildcards, the earliest of equals; 0 when every position is a wildcard. */
uint8_t DefaultAnchor(const StringFeature &string);

/** The value of a condition on an entropy, in bits per byte; `MeasureBits` is the inverse. */
double MeasureEntropy(const MeasureCondition &condition);
uint64_t MeasureBits(double entropy);

/** Entropy in thousandths of a bit, rounded to the nearest, halves upwards: the unit in which entropies are compared.
 * `entropy` must be finite; values below 0 count as 0 and those above 8 as 8.001, so that comparisons keep their
 * sense. */
uint32_t EntropyThousandths(double entropy);

} // namespace tavrik::rules

#endif
