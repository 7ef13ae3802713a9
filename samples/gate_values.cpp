#include "samples/gate_values.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

namespace tavrik::samples {

using tavrik2::Condition;
using tavrik2::GateView;

namespace {

// ---- Fields --------------------------------------------------------------------------------------------------------

struct FieldPlace {
    std::size_t offset; // in HostRecords
    uint32_t width;
};

#define PLACE(field, member)                                                                                           \
    case Field::field:                                                                                                 \
        return {                                                                                                       \
            offsetof(HostRecords, member), sizeof(HostRecords::member)                                                 \
        }
#define RECORD_PLACE(field, record, type, member)                                                                      \
    case Field::field:                                                                                                 \
        return {                                                                                                       \
            offsetof(HostRecords, record) + offsetof(type, member), sizeof(type::member)                               \
        }
#define FILE_HEADER(member) RECORD_PLACE(member, file_header, FileHeader, member)
#define OPT_HEADER(member) RECORD_PLACE(member, opt_header, OptionalHeader, member)
#define FIRST_SECTION(member) RECORD_PLACE(FirstSection##member, first_section, SectionHeader, member)
#define LAST_SECTION(member) RECORD_PLACE(LastSection##member, last_section, SectionHeader, member)
#define DATA_DIRS(field, word)                                                                                         \
    case Field::field:                                                                                                 \
        return {                                                                                                       \
            offsetof(HostRecords, data_dirs) + 4 * (word), 4                                                           \
        }

// A list of its own, apart from the one by which gates read: were it shared, a slip in it would cancel itself out in
// every sample and test. A field that the records do not hold has the width 0.
FieldPlace PlaceOf(Field field) {
    switch (field) {
        PLACE(FileSize, file_size);
        FILE_HEADER(NumberOfSections);
        FILE_HEADER(Characteristics);
        OPT_HEADER(MajorLinkerVersion);
        OPT_HEADER(MinorLinkerVersion);
        OPT_HEADER(SizeOfCode);
        OPT_HEADER(SizeOfInitializedData);
        OPT_HEADER(SizeOfUninitializedData);
        OPT_HEADER(AddressOfEntryPoint);
        OPT_HEADER(BaseOfCode);
        OPT_HEADER(ImageBase);
        OPT_HEADER(BaseOfData);
        OPT_HEADER(SectionAlignment);
        OPT_HEADER(FileAlignment);
        OPT_HEADER(MajorOperatingSystemVersion);
        OPT_HEADER(MinorOperatingSystemVersion);
        OPT_HEADER(MajorImageVersion);
        OPT_HEADER(MinorImageVersion);
        OPT_HEADER(MajorSubsystemVersion);
        OPT_HEADER(MinorSubsystemVersion);
        OPT_HEADER(SizeOfHeaders);
        OPT_HEADER(CheckSum);
        OPT_HEADER(Subsystem);
        OPT_HEADER(DllCharacteristics);
        OPT_HEADER(NumberOfRvaAndSizes);
        DATA_DIRS(ExportSize, 1);
        DATA_DIRS(ImportVirtualAddress, 2);
        DATA_DIRS(ImportSize, 3);
        DATA_DIRS(ResourceVirtualAddress, 4);
        DATA_DIRS(ResourceSize, 5);
        DATA_DIRS(CertificateSize, 9);
        DATA_DIRS(BaseRelocationSize, 11);
        DATA_DIRS(DebugSize, 13);
        DATA_DIRS(ImportAddressTableSize, 25);
        FIRST_SECTION(Name);
        FIRST_SECTION(VirtualSize);
        FIRST_SECTION(SizeOfRawData);
        FIRST_SECTION(PointerToRawData);
        FIRST_SECTION(Characteristics);
        LAST_SECTION(Name);
        LAST_SECTION(SizeOfRawData);
        LAST_SECTION(Characteristics);
    default:
        if (field >= Field::EntryCode0 && field <= Field::EntryCodeLast)
            return {offsetof(HostRecords, entry_code) + static_cast<std::size_t>(field) -
                        static_cast<std::size_t>(Field::EntryCode0),
                    1};
        return {0, 0};
    }
}

#undef PLACE
#undef RECORD_PLACE
#undef FILE_HEADER
#undef OPT_HEADER
#undef FIRST_SECTION
#undef LAST_SECTION
#undef DATA_DIRS

uint64_t LargestValue(Field field) {
    const uint32_t width = WidthOf(field);
    return width == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * width)) - 1;
}

// ---- Sets ----------------------------------------------------------------------------------------------------------

// The smallest v >= from with (v & mask) == bits.
std::optional<uint64_t> SmallestMatch(uint64_t from, uint64_t mask, uint64_t bits) {
    if ((from & mask) == bits)
        return from;
    // Above some position everything stays, the bit there rises from 0 to 1, and all below is as low as can be.
    for (uint32_t position = 0; position < 64; ++position) {
        const uint64_t bit = uint64_t{1} << position;
        const uint64_t below = bit - 1;
        if ((from & bit) != 0 || ((mask & bit) != 0 && (bits & bit) == 0))
            continue;
        const uint64_t value = (from & ~below) | bit | (bits & below);
        if ((value & mask) == bits)
            return value;
    }
    return std::nullopt;
}

// False when no value is left.
bool Narrow(AcceptedSet &set, const Condition &row) {
    if (row.mask == tavrik2::gates::kAllBits) {
        set.lo = std::max(set.lo, row.lo);
        set.hi = std::min(set.hi, row.lo + row.span);
    } else {
        if (row.span != 0)
            throw std::logic_error("a masked row accepts one pattern of bits");
        if (((set.bits ^ row.lo) & set.mask & row.mask) != 0)
            return false;
        set.mask |= row.mask;
        set.bits |= row.lo;
    }
    return set.lo <= set.hi && set.Lowest().has_value();
}

// ---- Paths ---------------------------------------------------------------------------------------------------------

// Walks all alternatives of a gate. An alternative is left out as a whole, at its first row: of the rows that fail to
// the same place, the first one.
class PathFinder {
public:
    explicit PathFinder(GateView gate) : gate_(gate), leaves_here_(gate.count) {
        std::vector<bool> known(gate.count + 1);
        for (uint32_t index = 0; index < gate.count; ++index) {
            const uint32_t on_fail = gate.rows[index].on_fail;
            if (on_fail == 0)
                continue;
            leaves_here_[index] = !known[index + on_fail];
            known[index + on_fail] = true;
        }
    }

    std::vector<GatePath> Find() {
        Walk(0, {});
        return std::move(found_);
    }

private:
    void Walk(uint32_t index, const GatePath &path) {
        if (index >= gate_.count) {
            found_.push_back(path);
            return;
        }
        const Condition &row = gate_.rows[index];
        GatePath met = path;
        if (Meet(met, row))
            Walk(index + row.on_pass, met);
        if (leaves_here_[index])
            Walk(index + row.on_fail, path);
    }

    static bool Meet(GatePath &path, const Condition &row) {
        path.rows.push_back(&row);
        if (row.field == Field::Profile)
            path.label += static_cast<char>(row.span);
        else if (row.IsHeading())
            path.label += std::to_string(row.span);
        if (row.IsHeading() || row.field == Field::Stream)
            return true;
        const auto [place, is_new] = path.fields.try_emplace(row.field);
        if (is_new)
            place->second.hi = LargestValue(row.field);
        return Narrow(place->second, row);
    }

    GateView gate_;
    std::vector<bool> leaves_here_;
    std::vector<GatePath> found_;
};

} // namespace

std::optional<uint64_t> AcceptedSet::AtLeast(uint64_t from) const {
    const auto value = SmallestMatch(std::max(from, lo), mask, bits);
    return value && *value <= hi ? value : std::nullopt;
}

std::optional<uint64_t> AcceptedSet::Highest() const {
    // The largest value is the complement of the smallest complement.
    const auto complement = SmallestMatch(~hi, mask, ~bits & mask);
    return complement && ~*complement >= lo ? std::optional(~*complement) : std::nullopt;
}

std::optional<uint64_t> AcceptedSet::Middle() const {
    const auto value = AtLeast(lo + (hi - lo) / 2);
    return value ? value : Lowest();
}

bool GatePath::Accepts(const FieldValues &values) const {
    return std::all_of(values.begin(), values.end(), [this](const auto &value) {
        const auto field = fields.find(value.first);
        return field == fields.end() || field->second.Contains(value.second);
    });
}

FieldValues GatePath::Pick(Choice choice, const FieldValues &wanted) const {
    if (!Accepts(wanted))
        throw std::invalid_argument("a wanted value is refused on this path of the gate");
    FieldValues values = wanted;
    for (const auto &[field, set] : fields) {
        const auto value = choice == Choice::Lowest   ? set.Lowest()
                           : choice == Choice::Middle ? set.Middle()
                                                      : set.Highest();
        values.try_emplace(field, value.value());
    }
    return values;
}

std::vector<GatePath> PathsOf(GateView gate) {
    return PathFinder(gate).Find();
}

std::vector<uint64_t> RefusedNeighbours(const Condition &row) {
    std::vector<uint64_t> values;
    if (row.mask == tavrik2::gates::kAllBits) {
        if (row.lo > 0)
            values.push_back(row.lo - 1);
        if (row.lo + row.span < LargestValue(row.field))
            values.push_back(row.lo + row.span + 1);
        return values;
    }
    for (uint64_t left = row.mask; left != 0; left &= left - 1)
        values.push_back(row.lo ^ (left & (~left + 1)));
    return values;
}

uint32_t WidthOf(Field field) {
    return field == Field::Stream ? sizeof(FileStream *) : PlaceOf(field).width;
}

void Fill(HostRecords &records, const FieldValues &values) {
    auto *bytes = reinterpret_cast<uint8_t *>(&records);
    for (const auto &[field, value] : values) {
        const FieldPlace place = PlaceOf(field);
        if (value > LargestValue(field) && field != Field::Stream)
            throw std::invalid_argument(fmt::format("0x{:X} is wider than its field", value));
        std::memcpy(bytes + place.offset, &value, place.width);
    }
}

} // namespace tavrik::samples
