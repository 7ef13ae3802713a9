#include "samples/gate_values.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>

#include <fmt/format.h>

#include "tavrik2/locators/gate/gate_parts.h"

namespace tavrik::samples {

using tavrik2::GateRow;
using tavrik2::GateView;

namespace {

// ---- Fields --------------------------------------------------------------------------------------------------------

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
bool Narrow(AcceptedSet &set, const GateRow &row) {
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

using Continue = std::function<void(const GatePath &)>;

// False when the path accepts no value that the row accepts, too.
bool Meet(GatePath &path, const GateRow &row) {
    path.rows.push_back(&row);
    if (row.field == Field::Stream)
        return true;
    const auto [place, is_new] = path.fields.try_emplace(row.field);
    if (is_new)
        place->second.hi = LargestValue(row.field);
    return Narrow(place->second, row);
}

void AddHeading(GatePath &path, const GateRow &heading) {
    if (heading.heading == tavrik2::Heading::Profile)
        path.label += static_cast<char>(heading.span);
    else if (heading.heading != tavrik2::Heading::None)
        path.label += std::to_string(heading.span);
}

// Goes every way through the rows that `path` allows, and on from there.
void Walk(GateView rows, const GatePath &path, const Continue &go_on) {
    if (rows.count == 0)
        return go_on(path);
    const GateView part = tavrik2::FirstPart(rows);
    const Continue rest = [&](const GatePath &met) { Walk(AfterPart(rows, part), met, go_on); };
    if (IsAlternatives(part)) {
        ForEachColumn(part, [&](const GateRow &heading, GateView column) {
            GatePath chosen = path;
            AddHeading(chosen, heading);
            Walk(column, chosen, rest);
        });
        return;
    }
    for (uint32_t index = 0; index < part.count; ++index) {
        GatePath met = path;
        if (Meet(met, part.rows[index]))
            rest(met);
    }
}

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
    std::vector<GatePath> paths;
    Walk(gate, {}, [&](const GatePath &path) { paths.push_back(path); });
    return paths;
}

std::vector<uint64_t> RefusedNeighbours(const GateRow &row) {
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
    return LocateField(field, HostRecords{}.View(nullptr, 0)).width;
}

void Fill(HostRecords &records, const FieldValues &values) {
    const tavrik2::TargetFile view = records.View(nullptr, 0);
    for (const auto &[field, value] : values) {
        if (field == Field::Stream)
            continue;
        if (value > LargestValue(field))
            throw std::invalid_argument(fmt::format("0x{:X} is wider than its field", value));
        if (field == Field::FileSize) {
            records.file_size = static_cast<int32_t>(value);
            continue;
        }
        const tavrik2::FieldBytes place = LocateField(field, view);
        std::memcpy(const_cast<uint8_t *>(place.bytes), &value, place.width); // of `records`, which are not const
    }
}

} // namespace tavrik::samples
