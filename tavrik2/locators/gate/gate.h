/* Header gates: what a locator asks of a file's headers before it reads a byte of the file.
 *
 * A gate is a constant list of conditions, one a line, in the order in which they are tested:
 *
 *     constexpr auto kGate = gate(in(NumberOfSections, 3, 8),
 *                                 is(Characteristics, 0x123),
 *                                 all(DllCharacteristics, 0x8000),
 *                                 one_of(SizeOfCode, {{0x35000, 0xCD000}, {0x1B0000, 0x1C0000}}),
 *                                 name(first_section::Name, ".text"));
 *
 * Ranges include both ends. Every condition is one test, (value & mask) - lo <= span in unsigned arithmetic, and knows
 * the row to go on with when it is met and when it is not. Alternatives are thereby part of the list: `one_of` and
 * `any` for a single condition, `either` for whole columns such as profiles. The first row that fails without an
 * alternative ends the gate. Because gates are data, they can be shown beside a file's values as well as evaluated. */
#ifndef TAVRIK2_LOCATORS_GATE_GATE_H
#define TAVRIK2_LOCATORS_GATE_GATE_H

#include <cstddef>
#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** What a condition looks at. */
enum class Field : uint8_t {
    // The call's own arguments.
    Stream,
    FileSize,
    // The file header.
    NumberOfSections,
    Characteristics,
    // The optional header.
    MajorLinkerVersion,
    MinorLinkerVersion,
    SizeOfCode,
    SizeOfInitializedData,
    SizeOfUninitializedData,
    AddressOfEntryPoint,
    BaseOfCode,
    ImageBase,
    BaseOfData,
    SectionAlignment,
    FileAlignment,
    MajorOperatingSystemVersion,
    MinorOperatingSystemVersion,
    MajorImageVersion,
    MinorImageVersion,
    MajorSubsystemVersion,
    MinorSubsystemVersion,
    SizeOfHeaders,
    CheckSum,
    Subsystem,
    DllCharacteristics,
    NumberOfRvaAndSizes,
    // The data directories.
    ExportSize,
    ImportVirtualAddress,
    ImportSize,
    ResourceVirtualAddress,
    ResourceSize,
    CertificateSize,
    BaseRelocationSize,
    DebugSize,
    ImportAddressTableSize,
    // The section headers that the host picked.
    FirstSectionName,
    FirstSectionVirtualSize,
    FirstSectionSizeOfRawData,
    FirstSectionPointerToRawData,
    FirstSectionCharacteristics,
    LastSectionName,
    LastSectionSizeOfRawData,
    LastSectionCharacteristics,
    // The bytes at the entry point, byte 0 first.
    EntryCode0,
    EntryCodeLast = EntryCode0 + ENTRY_CODE_BYTES - 1,
    // Headings of alternatives; they look at nothing.
    Profile,    // span is the profile's letter
    Variant,    // span is the variant's number
    SectionCase // span is the number of sections that the alternative is for
};

inline constexpr std::size_t kFieldCount = static_cast<std::size_t>(Field::SectionCase) + 1;

/** One row of a gate. */
struct Condition {
    uint64_t mask;
    uint64_t lo;
    uint64_t span;
    Field field;
    uint8_t on_pass; // rows to go forward when the condition is met
    uint8_t on_fail; // rows to go forward when it is not; 0 ends the gate
    uint8_t depth;   // how many alternatives the row stands inside of

    constexpr bool IsHeading() const { return field >= Field::Profile; }
    constexpr bool Accepts(uint64_t value) const { return (value & mask) - lo <= span; }
};

/** A gate of any length, as it is handed around. */
struct GateView {
    const Condition *rows;
    uint32_t count;
};

/** A gate, or a piece of one. */
template <std::size_t Count>
struct Gate {
    Condition rows[Count];

    constexpr operator GateView() const { return {rows, Count}; }
};

/** The value of a field in a file, zero-extended; 0 for a heading. A name is its 8 bytes, the first the lowest. */
uint64_t FieldValue(Field field, const TargetFile &file);

/** True when the file passes the gate. Looks at the host's records only. */
bool Passes(GateView gate, const TargetFile &file);

// ---- Writing gates -------------------------------------------------------------------------------------------------

/** The fields as the rows name them. */
namespace fields {

using enum Field;

namespace first_section {
inline constexpr Field Name = Field::FirstSectionName;
inline constexpr Field VirtualSize = Field::FirstSectionVirtualSize;
inline constexpr Field SizeOfRawData = Field::FirstSectionSizeOfRawData;
inline constexpr Field PointerToRawData = Field::FirstSectionPointerToRawData;
inline constexpr Field Characteristics = Field::FirstSectionCharacteristics;
} // namespace first_section

namespace last_section {
inline constexpr Field Name = Field::LastSectionName;
inline constexpr Field SizeOfRawData = Field::LastSectionSizeOfRawData;
inline constexpr Field Characteristics = Field::LastSectionCharacteristics;
} // namespace last_section

// Never defined: reaching one of these while a gate is compiled is the error message.
void the_host_supplies_no_such_entry_code_byte();
void a_reversed_range_accepts_nothing();

consteval Field entry_code(std::size_t byte) {
    if (byte >= ENTRY_CODE_BYTES)
        the_host_supplies_no_such_entry_code_byte();
    return static_cast<Field>(static_cast<std::size_t>(Field::EntryCode0) + byte);
}

} // namespace fields

// What rows are written with (small letters) is consteval; what that builds on (capitals) is constexpr, because not
// every compiler lets a consteval function hand its arguments on to another one.
namespace gates {

inline constexpr uint64_t kAllBits = ~uint64_t{0};

constexpr Gate<1> Row(Field field, uint64_t mask, uint64_t lo, uint64_t hi) {
    if (lo > hi)
        fields::a_reversed_range_accepts_nothing();
    return {{{mask, lo, hi - lo, field, 1, 0, 0}}};
}

/** lo <= value <= hi */
consteval Gate<1> in(Field field, uint64_t lo, uint64_t hi) {
    return Row(field, kAllBits, lo, hi);
}

/** value == wanted */
consteval Gate<1> is(Field field, uint64_t wanted) {
    return Row(field, kAllBits, wanted, wanted);
}

/** value >= lo; the file size counts as signed, as everywhere */
consteval Gate<1> at_least(Field field, uint64_t lo) {
    return Row(field, kAllBits, lo, field == Field::FileSize ? uint64_t{INT32_MAX} : kAllBits);
}

/** value <= hi */
consteval Gate<1> at_most(Field field, uint64_t hi) {
    return Row(field, kAllBits, 0, hi);
}

/** all bits of `bits` are set */
consteval Gate<1> all(Field field, uint64_t bits) {
    return Row(field, bits, bits, bits);
}

/** file_size + slack > bound, as signed values whose sum wraps */
consteval Gate<1> file_size_beyond(uint64_t bound, uint64_t slack) {
    return Row(Field::FileSize, kAllBits, bound - slack + 1, uint64_t{INT32_MAX} - slack);
}

/** not null */
consteval Gate<1> present(Field pointer) {
    return at_least(pointer, 1);
}

template <std::size_t Size>
constexpr Gate<1> NameRow(Field field, const char (&text)[Size]) {
    static_assert(Size <= sizeof(SectionHeader::Name), "a section name and its NUL have at most 8 bytes");
    uint64_t mask = 0;
    uint64_t wanted = 0;
    for (std::size_t byte = 0; byte < Size; ++byte) {
        mask |= uint64_t{0xFF} << (8 * byte);
        wanted |= uint64_t{static_cast<uint8_t>(text[byte])} << (8 * byte);
    }
    return Row(field, mask, wanted, wanted);
}

/** The name's first bytes are exactly `text` and a NUL; bytes after that are not looked at. */
template <std::size_t Size>
consteval Gate<1> name(Field field, const char (&text)[Size]) {
    return NameRow(field, text);
}

/** The name, as a NUL-terminated string, equals `text` in any mix of capitals and small letters: the mask takes the bit
 * that tells them apart out of every letter. */
template <std::size_t Size>
consteval Gate<1> name_ignoring_case(Field field, const char (&text)[Size]) {
    constexpr uint64_t kCaseBit = 'a' ^ 'A';
    Gate<1> row = NameRow(field, text);
    for (std::size_t byte = 0; byte < Size; ++byte) {
        const bool letter = (text[byte] >= 'a' && text[byte] <= 'z') || (text[byte] >= 'A' && text[byte] <= 'Z');
        if (letter)
            row.rows[0].mask &= ~(kCaseBit << (8 * byte));
    }
    row.rows[0].lo &= row.rows[0].mask;
    return row;
}

template <std::size_t... Counts>
constexpr auto Concatenate(const Gate<Counts> &...parts) {
    Gate<(Counts + ...)> whole{};
    std::size_t end = 0;
    (
        [&] {
            for (const Condition &row : parts.rows)
                whole.rows[end++] = row;
        }(),
        ...);
    return whole;
}

/** Conditions that must all hold, in this order. */
template <std::size_t... Counts>
consteval auto gate(const Gate<Counts> &...parts) {
    return Concatenate(parts...);
}

template <std::size_t... Counts>
constexpr auto Alternatives(const Gate<Counts> &...alternatives) {
    constexpr std::size_t kCounts[] = {Counts...};
    constexpr std::size_t kTotal = (Counts + ...);
    static_assert(kTotal <= UINT8_MAX, "a row reaches at most 255 rows forward");
    Gate<kTotal> whole = Concatenate(alternatives...);
    std::size_t start = 0;
    for (const std::size_t count : kCounts) {
        const std::size_t end = start + count;
        for (std::size_t index = start; index < end; ++index) {
            Condition &row = whole.rows[index];
            if (index + row.on_pass == end)
                row.on_pass = static_cast<uint8_t>(kTotal - index);
            if (row.on_fail == 0 && end != kTotal)
                row.on_fail = static_cast<uint8_t>(end - index);
        }
        start = end;
    }
    return whole;
}

/** One of several conditions must hold; they are tried in this order. */
template <std::size_t... Counts>
consteval auto any(const Gate<Counts> &...alternatives) {
    return Alternatives(alternatives...);
}

/** Both ends included; a single value is a range of its own. */
struct Range {
    uint64_t lo;
    uint64_t hi;

    consteval Range(uint64_t value) : lo(value), hi(value) {}
    consteval Range(uint64_t first, uint64_t last) : lo(first), hi(last) {}
};

/** The value lies in one of the ranges. */
template <std::size_t Count>
consteval Gate<Count> one_of(Field field, const Range (&ranges)[Count]) {
    Gate<Count> whole{};
    for (std::size_t index = 0; index < Count; ++index) {
        Condition &row = whole.rows[index];
        row = Row(field, kAllBits, ranges[index].lo, ranges[index].hi).rows[0];
        row.on_pass = static_cast<uint8_t>(Count - index);
        row.on_fail = index + 1 < Count ? 1 : 0;
    }
    return whole;
}

template <std::size_t... Counts>
constexpr auto Headed(Field heading, uint64_t label, const Gate<Counts> &...conditions) {
    auto whole = Concatenate(Gate<1>{{{0, 0, label, heading, 1, 0, 0}}}, conditions...);
    for (Condition &row : whole.rows)
        ++row.depth;
    return whole;
}

/** A whole column of conditions under a heading, for `either`. */
template <std::size_t... Counts>
consteval auto profile(char letter, const Gate<Counts> &...conditions) {
    return Headed(Field::Profile, static_cast<uint64_t>(letter), conditions...);
}

template <std::size_t... Counts>
consteval auto variant(uint64_t number, const Gate<Counts> &...conditions) {
    return Headed(Field::Variant, number, conditions...);
}

/** The column for files of exactly `count` sections. */
template <std::size_t... Counts>
consteval auto sections(uint64_t count, const Gate<Counts> &...conditions) {
    return Headed(Field::SectionCase, count, Row(Field::NumberOfSections, kAllBits, count, count), conditions...);
}

/** One of several columns must hold in full; they are tried in this order. */
template <std::size_t... Counts>
consteval auto either(const Gate<Counts> &...columns) {
    return Alternatives(columns...);
}

} // namespace gates
} // namespace tavrik2

#endif
