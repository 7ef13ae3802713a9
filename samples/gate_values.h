/* From a gate to header values that pass it.
 *
 * A gate with alternatives can be passed along several paths. A path is the list of rows that must be met when at every
 * branching one alternative is chosen; what it says of a field, in however many rows, is one accepted set. */
#ifndef TAVRIK_SAMPLES_GATE_VALUES_H
#define TAVRIK_SAMPLES_GATE_VALUES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tavrik2/locators/gate/gate.h"

namespace tavrik::samples {

using tavrik2::Field;

/** The values v of a field with lo <= v <= hi and (v & mask) == bits. */
struct AcceptedSet {
    uint64_t lo = 0;
    uint64_t hi = ~uint64_t{0};
    uint64_t mask = 0;
    uint64_t bits = 0;

    bool Contains(uint64_t value) const { return lo <= value && value <= hi && (value & mask) == bits; }

    /** The smallest element that is at least `from`; nothing when there is none. */
    std::optional<uint64_t> AtLeast(uint64_t from) const;
    /** The ends of the set, and an element near its middle; nothing when the set is empty. */
    std::optional<uint64_t> Lowest() const { return AtLeast(lo); }
    std::optional<uint64_t> Highest() const;
    std::optional<uint64_t> Middle() const;
};

/** Values of fields, zero-extended as tavrik2::FieldValue gives them. */
using FieldValues = std::map<Field, uint64_t>;

/** One way through a gate. */
struct GatePath {
    std::string label; // the chosen columns' letters and numbers, such as "B7"; empty without columns
    std::vector<const tavrik2::GateRow *> rows; // that must be met, in the gate's order
    std::map<Field, AcceptedSet> fields;

    /** True when every field that has a value here has an accepted one. Fields of the path without a value pass. */
    bool Accepts(const FieldValues &values) const;

    /** A value for each of the path's fields: the one in `wanted` (which must be accepted, else std::invalid_argument),
     * by default the set's lowest, highest or middle element. The result also holds the `wanted` fields of no row. */
    enum class Choice { Lowest, Middle, Highest };
    FieldValues Pick(Choice choice, const FieldValues &wanted = {}) const;
};

/** All ways through the gate that some values can take, in the order in which the gate tries them. */
std::vector<GatePath> PathsOf(tavrik2::GateView gate);

/** The values next to a row's accepted ones that the row refuses: one below and one above a range, a mask's bits less
 * one each, as far as the field can hold them. */
std::vector<uint64_t> RefusedNeighbours(const tavrik2::GateRow &row);

/** The width of a field in bytes. */
uint32_t WidthOf(Field field);

/** A host's records, to call locators with. Zero wherever nothing is filled in. */
struct HostRecords {
    int32_t file_size;
    uint32_t data_dirs[DATA_DIRECTORY_WORDS];
    FileHeader file_header;
    OptionalHeader opt_header;
    SectionHeader first_section;
    SectionHeader last_section;
    uint8_t entry_code[ENTRY_CODE_BYTES];

    /** The locator's view; borrows the records and the stream. */
    tavrik2::TargetFile View(FileStream *stream, uint32_t handle) const {
        return {stream,      handle,         file_size,     data_dirs, &file_header,
                &opt_header, &first_section, &last_section, entry_code};
    }
};

/** Writes each value to its field; the other fields keep theirs. The stream is no field of the records. */
void Fill(HostRecords &records, const FieldValues &values);

} // namespace tavrik::samples

#endif
