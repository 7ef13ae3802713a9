#include "tavrik2/locators/gate/gate.h"

#include <cstddef>

namespace tavrik2 {
namespace {

// The record, as the position of its pointer in TargetFile, and the bytes within the record.
struct FieldPlace {
    uint8_t record;
    uint8_t offset;
    uint8_t width;
};

// The pointer position of TargetFile itself.
constexpr uint8_t kOwnRecord = 0xFF;

constexpr FieldPlace kPlaces[] = {
#define GATE_FIELD(name, record, offset, width, text, style) {record, offset, width},
#include "tavrik2/locators/gate/fields.def"
    {kOwnRecord, 0, 0}, // Field::None
};
static_assert(sizeof kPlaces == sizeof(FieldPlace) * (kFieldCount + 1));

const uint8_t *RecordOf(const FieldPlace &place, const TargetFile &file) {
    const uint8_t *self = reinterpret_cast<const uint8_t *>(&file);
    return place.record == kOwnRecord ? self : Load<const uint8_t *>(self + place.record);
}

} // namespace

FieldBytes LocateField(Field field, const TargetFile &file) {
    const FieldPlace &place = kPlaces[static_cast<std::size_t>(field)];
    return {RecordOf(place, file) + place.offset, place.width};
}

uint64_t FieldValue(Field field, const TargetFile &file) {
    const FieldBytes place = LocateField(field, file);
    switch (place.width) {
    case 1:
        return *place.bytes;
    case 2:
        return LoadU16(place.bytes);
    case 4:
        return LoadU32(place.bytes);
    case 8:
        return Load<uint64_t>(place.bytes);
    default:
        return 0;
    }
}

bool Passes(GateView gate, const TargetFile &file) {
    for (uint32_t index = 0; index < gate.count;) {
        const GateRow &row = gate.rows[index];
        const bool accepted = row.Accepts(FieldValue(row.field, file));
        if (!accepted && row.on_fail == 0)
            return false;
        index += accepted ? row.on_pass : row.on_fail;
    }
    return true;
}

} // namespace tavrik2
