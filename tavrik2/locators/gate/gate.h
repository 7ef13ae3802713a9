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
 * Ranges include both ends. Every condition is one test, (value & mask) - lo <= span in unsigned arithmetic. A
 * condition with several ranges (`one_of`, `any`) is as many rows; whole columns of conditions of which one must hold
 * (`either`) are enclosed in rows that begin, divide and end them. The first row that fails without an alternative ends
 * the gate. Because gates are data, they can be shown beside a file's values as well as evaluated; gate_parts.h takes
 * them apart. The evaluation needs no structure: each row says how far to go on in either case. */
#ifndef TAVRIK2_LOCATORS_GATE_GATE_H
#define TAVRIK2_LOCATORS_GATE_GATE_H

#include <cstddef>
#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** What a condition looks at. */
enum class Field : uint8_t {
#define GATE_FIELD(name, record, offset, width, text, style) name,
#include "tavrik2/locators/gate/fields.def"
    EntryCodeLast = EntryCode21,
    None // looks at nothing and reads as 0
};

inline constexpr std::size_t kFieldCount = static_cast<std::size_t>(Field::None);
static_assert(static_cast<std::size_t>(Field::EntryCodeLast) - static_cast<std::size_t>(Field::EntryCode0) ==
                  ENTRY_CODE_BYTES - 1,
              "every byte of the entry code is a field");

/** What a row is. */
enum class RowKind : uint8_t {
    Condition, // the only range of a condition, or its last one
    Range,     // a range of a condition that the next row goes on with
    Begin,     // opens alternatives and heads the first of them
    Next,      // heads the next alternative
    End        // closes the alternatives
};

/** What the head of an alternative tells of it; the number or letter is in the row's span. */
enum class Heading : uint8_t { None, Profile, Variant, SectionCount };

/** One row of a gate. Its value is accepted when (value & mask) - lo <= span. */
struct GateRow {
    uint64_t mask;
    uint64_t lo;
    uint64_t span;
    Field field;
    RowKind kind;
    Heading heading; // of Begin and Next
    // Where the evaluation continues; rows of alternatives that are already decided are skipped.
    uint8_t on_pass; // rows to go forward when the value is accepted
    uint8_t on_fail; // rows to go forward when it is not; 0 ends the gate

    constexpr bool Accepts(uint64_t value) const { return (value & mask) - lo <= span; }
};

/** A gate of any length, as it is handed around. */
struct GateView {
    const GateRow *rows;
    uint32_t count;
};

/** A gate, or a piece of one. */
template <std::size_t Count>
struct Gate {
    GateRow rows[Count];

    constexpr operator GateView() const { return {rows, Count}; }
};

/** Where a field is in the host's records. */
struct FieldBytes {
    const uint8_t *bytes;
    uint32_t width; // 1, 2, 4 or 8; 0 for Field::None
};
FieldBytes LocateField(Field field, const TargetFile &file);

/** The value of a field in a file, zero-extended. A name is its 8 bytes, the first the lowest. */
uint64_t FieldValue(Field field, const TargetFile &file);

/** True when the file passes the gate. Looks at the host's records only. */
bool Passes(GateView gate, const TargetFile &file);

// ---- Writing gates -------------------------------------------------------------------------------------------------

/** The fields as the rows name them. */
namespace fields {

using enum Field;

// first_section::Name and the like
#define GATE_FIELD(name, record, offset, width, text, style)
#define GATE_SECTION_FIELD(section, prefix, member, style)                                                             \
    namespace section {                                                                                                \
    inline constexpr Field member = Field::prefix##member;                                                             \
    }
#include "tavrik2/locators/gate/fields.def"

// Never defined: reaching one of these while a gate is compiled is the error message.
void the_host_supplies_no_such_entry_code_byte();
void a_reversed_range_accepts_nothing();
void the_ranges_of_a_condition_are_of_one_field();

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
    return {{{mask, lo, hi - lo, field, RowKind::Condition, Heading::None, 1, 0}}};
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
            for (const GateRow &row : parts.rows)
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

// Makes the rows, each a condition by itself, the ranges of one condition, tried in this order.
template <std::size_t Count>
constexpr Gate<Count> Ranges(Gate<Count> rows) {
    for (std::size_t index = 0; index < Count; ++index) {
        GateRow &row = rows.rows[index];
        if (row.field != rows.rows[0].field)
            fields::the_ranges_of_a_condition_are_of_one_field();
        const bool last = index + 1 == Count;
        row.kind = last ? RowKind::Condition : RowKind::Range;
        row.on_pass = static_cast<uint8_t>(Count - index);
        row.on_fail = last ? 0 : 1;
    }
    return rows;
}

/** One of several conditions of one field must hold; they are tried in this order. */
template <typename... Rows>
consteval auto any(const Rows &...conditions) {
    return Ranges(Concatenate(Gate<1>(conditions)...));
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
    Gate<Count> rows{};
    for (std::size_t index = 0; index < Count; ++index)
        rows.rows[index] = Row(field, kAllBits, ranges[index].lo, ranges[index].hi).rows[0];
    return Ranges(rows);
}

constexpr Gate<1> StructureRow(RowKind kind, Heading heading, uint64_t label) {
    return {{{0, 0, label, Field::None, kind, heading, 1, 0}}};
}

template <std::size_t... Counts>
constexpr auto Column(Heading heading, uint64_t label, const Gate<Counts> &...conditions) {
    return Concatenate(StructureRow(RowKind::Next, heading, label), conditions...);
}

/** A whole column of conditions under a heading, for `either`. */
template <std::size_t... Counts>
consteval auto profile(char letter, const Gate<Counts> &...conditions) {
    return Column(Heading::Profile, static_cast<uint64_t>(letter), conditions...);
}

template <std::size_t... Counts>
consteval auto variant(uint64_t number, const Gate<Counts> &...conditions) {
    return Column(Heading::Variant, number, conditions...);
}

/** A column without a heading. */
template <std::size_t... Counts>
consteval auto column(const Gate<Counts> &...conditions) {
    return Column(Heading::None, 0, conditions...);
}

/** The column for files of exactly `count` sections. */
template <std::size_t... Counts>
consteval auto sections(uint64_t count, const Gate<Counts> &...conditions) {
    return Column(Heading::SectionCount, count, Row(Field::NumberOfSections, kAllBits, count, count), conditions...);
}

/** One of several columns must hold in full; they are tried in this order. */
template <std::size_t... Counts>
consteval auto either(const Gate<Counts> &...columns) {
    constexpr std::size_t kCounts[] = {Counts...};
    constexpr std::size_t kTotal = (Counts + ...) + 1;
    static_assert(kTotal <= UINT8_MAX, "a row reaches at most 255 rows forward");
    Gate<kTotal> whole = Concatenate(columns..., StructureRow(RowKind::End, Heading::None, 0));
    whole.rows[0].kind = RowKind::Begin;
    std::size_t start = 0;
    for (const std::size_t count : kCounts) {
        const std::size_t end = start + count;
        const bool last = end == kTotal - 1;
        for (std::size_t index = start; index < end; ++index) {
            GateRow &row = whole.rows[index];
            if (index + row.on_pass == end)
                row.on_pass = static_cast<uint8_t>(kTotal - index);
            if (row.on_fail == 0 && !last)
                row.on_fail = static_cast<uint8_t>(end + 1 - index); // past the next column's heading
        }
        start = end;
    }
    return whole;
}

} // namespace gates
} // namespace tavrik2

#endif
