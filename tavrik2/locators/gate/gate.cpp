#include "tavrik2/locators/gate/gate.h"

#include <cstddef>

namespace tavrik2 {
namespace {

// Where a field stands: the record, as the position of its pointer in TargetFile, and the bytes within the record.
struct FieldPlace {
    uint8_t record;
    uint8_t offset;
    uint8_t width;
};

// The pointer position of TargetFile itself.
constexpr uint8_t kOwnRecord = 0xFF;

struct FieldPlaces {
    FieldPlace places[kFieldCount];

    consteval void Set(Field field, std::size_t record, std::size_t offset, std::size_t width) {
        places[static_cast<std::size_t>(field)] = {static_cast<uint8_t>(record), static_cast<uint8_t>(offset),
                                                   static_cast<uint8_t>(width)};
    }
};

#define ARGUMENT(field, member)                                                                                        \
    places.Set(Field::field, kOwnRecord, offsetof(TargetFile, member), sizeof(TargetFile::member))
#define MEMBER(field, record, type, member)                                                                            \
    places.Set(Field::field, offsetof(TargetFile, record), offsetof(type, member), sizeof(type::member))
#define FILE_HEADER(member) MEMBER(member, file_header, FileHeader, member)
#define OPT_HEADER(member) MEMBER(member, opt_header, OptionalHeader, member)
#define FIRST_SECTION(member) MEMBER(FirstSection##member, first_section, SectionHeader, member)
#define LAST_SECTION(member) MEMBER(LastSection##member, last_section, SectionHeader, member)
#define DATA_DIRS(field, word) places.Set(Field::field, offsetof(TargetFile, data_dirs), 4 * (word), 4)

consteval FieldPlaces LayOut() {
    FieldPlaces places{};
    ARGUMENT(Stream, stream);
    ARGUMENT(FileSize, file_size);
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
    for (std::size_t byte = 0; byte < ENTRY_CODE_BYTES; ++byte)
        places.Set(fields::entry_code(byte), offsetof(TargetFile, entry_code), byte, 1);
    // A heading has no width and reads as 0.
    places.Set(Field::Profile, kOwnRecord, 0, 0);
    places.Set(Field::Variant, kOwnRecord, 0, 0);
    places.Set(Field::SectionCase, kOwnRecord, 0, 0);
    return places;
}

#undef ARGUMENT
#undef MEMBER
#undef FILE_HEADER
#undef OPT_HEADER
#undef FIRST_SECTION
#undef LAST_SECTION
#undef DATA_DIRS

constexpr FieldPlaces kFields = LayOut();

const uint8_t *RecordOf(const FieldPlace &place, const TargetFile &file) {
    const uint8_t *self = reinterpret_cast<const uint8_t *>(&file);
    return place.record == kOwnRecord ? self : Load<const uint8_t *>(self + place.record);
}

} // namespace

uint64_t FieldValue(Field field, const TargetFile &file) {
    const FieldPlace &place = kFields.places[static_cast<std::size_t>(field)];
    const uint8_t *bytes = RecordOf(place, file) + place.offset;
    switch (place.width) {
    case 1:
        return *bytes;
    case 2:
        return LoadU16(bytes);
    case 4:
        return LoadU32(bytes);
    case 8:
        return Load<uint64_t>(bytes);
    default:
        return 0;
    }
}

bool Passes(GateView gate, const TargetFile &file) {
    for (uint32_t index = 0; index < gate.count;) {
        const Condition &row = gate.rows[index];
        const bool met = row.Accepts(FieldValue(row.field, file));
        if (!met && row.on_fail == 0)
            return false;
        index += met ? row.on_pass : row.on_fail;
    }
    return true;
}

} // namespace tavrik2
