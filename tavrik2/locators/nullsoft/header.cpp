// Nullsoft installers whose header is at one computed offset (entries 7, 8, 9 and 10).

#include <cstring>

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows7 = gate(
    is(NumberOfSections, 6),
    is(Characteristics, 0x10F),
    in(AddressOfEntryPoint, 0x2000, 0x4000),
    is(MajorLinkerVersion, 7),
    is(MinorLinkerVersion, 10),
    in(BaseOfData, 0x7000, 0x8000),
    is(MajorOperatingSystemVersion, 4),
    is(MajorSubsystemVersion, 4),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000),
    in(ImportVirtualAddress, 0x7000, 0x8000));

constexpr auto kRows8 = gate(
    in(NumberOfSections, 6, 7),
    is(Characteristics, 0x10F),
    in(AddressOfEntryPoint, 0x2000, 0x4000),
    is(MajorLinkerVersion, 6),
    is(MinorLinkerVersion, 0),
    in(BaseOfData, 0x6700, 0x7700),
    is(MajorOperatingSystemVersion, 4),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    in(ImportSize, 0xA0, 0xC0),
    in(ImportAddressTableSize, 0x250, 0x300));

constexpr auto kRows9 = gate(
    is(NumberOfSections, 10),
    is(Characteristics, 0x818E),
    in(AddressOfEntryPoint, 0x131000, 0x132300),
    is(MajorLinkerVersion, 2),
    is(MinorLinkerVersion, 25),
    in(BaseOfData, 0x131000, 0x133000),
    is(MajorOperatingSystemVersion, 5),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    in(ImportSize, 0x3000, 0x4000),
    in(ImportAddressTableSize, 0x700, 0x800),
    at_least(FileSize, 0x133600));

constexpr auto kRows10 = gate(
    is(NumberOfSections, 5),
    is(Characteristics, 0x10F),
    in(AddressOfEntryPoint, 0x3000, 0x3500),
    is(DllCharacteristics, 0x8000),
    is(MajorLinkerVersion, 6),
    is(MinorLinkerVersion, 0),
    in(BaseOfData, 0x6700, 0x7700),
    is(MajorOperatingSystemVersion, 4),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    in(ImportSize, 0xA0, 0xC0),
    in(ResourceSize, 0x900, 0x1000),
    in(ImportAddressTableSize, 0x260, 0x2A0),
    name(last_section::Name, ".rsrc"),
    in(last_section::SizeOfRawData, 0x10000, 0x15000),
    all(last_section::Characteristics, kMemReadWriteExecute | kCntInitializedData));
// clang-format on

constexpr uint32_t kReadableData = kMemRead | kCntInitializedData;

bool IsResourceSection(const SectionHeader &section) {
    constexpr char kName[] = ".rsrc";
    return std::memcmp(section.Name, kName, sizeof kName) == 0;
}

// Reads the header at `offset` and reports it if it opens with the header's words.
int ReadHeader(const TargetFile &file, uint32_t offset, Finding *finding) {
    uint8_t header[kHeaderSize];
    if (!file.ReadBlockAt(offset, header) || std::memcmp(header, NullsoftMarker, kNullsoftWordsLength) != 0)
        return kDeclined;
    return Report(finding, offset, kHeaderSize);
}

} // namespace

constinit const GateView kGate7 = kRows7;
constinit const GateView kGate8 = kRows8;
constinit const GateView kGate9 = kRows9;
constinit const GateView kGate10 = kRows10;

int Locate7(const TargetFile &file, Finding *finding) {
    SectionHeader section4;
    if (!file.ReadSectionHeader(kEntry7SectionIndex, &section4))
        return kDeclined;
    const uint32_t offset = RawDataEnd(section4) + kEntry7Distance;
    if (!file.IsInFile(offset, 1))
        return kDeclined;
    return ReadHeader(file, offset, finding);
}

int Locate8(const TargetFile &file, Finding *finding) {
    SectionHeader section4;
    if (!file.ReadSectionHeader(kEntry8SectionIndex, &section4))
        return kDeclined;
    if (!IsResourceSection(section4) && (section4.Characteristics & kReadableData) != kReadableData)
        return kDeclined;
    const uint32_t section4_end = RawDataEnd(section4);
    if (!file.IsInFile(section4_end, 1))
        return kDeclined;
    SectionHeader section5;
    if (!file.ReadSectionHeader(kEntry8NextSectionIndex, &section5))
        return kDeclined;
    const bool adjoining = section4_end == section5.PointerToRawData;
    const uint32_t offset = adjoining ? section4_end + kEntry8DistanceAdjoining
                                      : file.last_section->PointerToRawData + kEntry8DistanceOther;
    if (AsSigned(offset) >= file.file_size)
        return kDeclined;
    return ReadHeader(file, offset, finding);
}

int Locate9(const TargetFile &file, Finding *finding) {
    return ReadHeader(file, AsOffset(file.file_size) + kEntry9Distance, finding);
}

int Locate10(const TargetFile &file, Finding *finding) {
    const uint32_t offset = file.last_section->PointerToRawData + kEntry10Distance;
    if (AsSigned(offset) >= file.file_size)
        return kDeclined;
    return ReadHeader(file, offset, finding);
}

} // namespace tavrik2
