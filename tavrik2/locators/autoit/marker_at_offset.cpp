// AutoIt wrappers whose script's marker stands at one of a few offsets (entries 0, 5, 12 and 23).

#include <cstring>

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows23 = gate(
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 8),
    is(MinorLinkerVersion, 0),
    is(BaseOfData, 0x67000),
    is(BaseOfCode, 0x1000),
    is(MajorOperatingSystemVersion, 4),
    is(MajorSubsystemVersion, 4),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8000),
    is(ImageBase, 0x400000),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000));

constexpr auto kRows12 = gate(
    in(NumberOfSections, 6, 9),
    in(SizeOfCode, 0x65200, 0x65400),
    is(SizeOfUninitializedData, 0),
    in(AddressOfEntryPoint, 0x53E00, 0x53F00),
    is(BaseOfCode, 0x1000),
    in(BaseOfData, 0x67000, 0x67200),
    in(ImportSize, 0x110, 0x2D0),
    in(ImportVirtualAddress, 0x72B00, 0x72C00),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000),
    is(entry_code(0), 0xE8),
    is(entry_code(3), 0x00),
    is(entry_code(5), 0xE9),
    is(entry_code(8), 0xFF));

constexpr auto kRows0 = gate(
    is(NumberOfSections, 4),
    is(Characteristics, 0x123),
    in(AddressOfEntryPoint, 0x16000, 0x17000),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    in(BaseOfData, 0x82000, 0x83000),
    is(MajorOperatingSystemVersion, 5),
    is(MajorSubsystemVersion, 5),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000),
    in(ImportVirtualAddress, 0x8D000, 0x8F000));

constexpr auto kRows5 = gate(
    present(Stream),
    at_least(FileSize, 0xA7C3F),
    is(NumberOfSections, 4),
    is(Characteristics, 0x123),
    in(AddressOfEntryPoint, 0x16000, 0x17000),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    in(BaseOfData, 0x82000, 0x83000),
    is(MajorOperatingSystemVersion, 5),
    is(MajorSubsystemVersion, 5),
    is(MajorImageVersion, 0),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000),
    in(ImportVirtualAddress, 0x8D000, 0x8F000),
    in(ResourceSize, 0x11000, 0x12000),
    is(CertificateSize, 0));
// clang-format on

// Markers of altered builds.
constexpr uint8_t kEntry0Marker[16] = {0xA3, 0x48, 0x4B, 0xBE, 0x98, 0x6C, 0x4A, 0xA9,
                                       0x82, 0x29, 0x92, 0x76, 0x82, 0x85, 0x19, 0x65};
constexpr uint8_t kEntry5Marker[16] = {0x38, 0x71, 0x13, 0x28, 0x95, 0x12, 0x58, 0x71,
                                       0x63, 0x23, 0x47, 0x52, 0x32, 0x12, 0x83, 0x79};

constexpr uint32_t kEntry23Distances[] = {0x14A00, 0x5CA00}; // into section 4
constexpr uint32_t kEntry12Offsets[] = {0xF2000, 0xFF200, 0x1CD200};
constexpr uint32_t kEntry5Offset = 0xA7C1F;

int ReadMarker(const TargetFile &file, uint32_t offset, const uint8_t (&marker)[16], Finding *finding) {
    uint8_t block[32];
    if (!file.ReadBlockAt(offset, block) || std::memcmp(block, marker, sizeof marker) != 0)
        return kDeclined;
    return Report(finding, offset, kHeaderSize);
}

} // namespace

constinit const GateView kGate0 = kRows0;
constinit const GateView kGate5 = kRows5;
constinit const GateView kGate12 = kRows12;
constinit const GateView kGate23 = kRows23;

int Locate23(const TargetFile &file, Finding *finding) {
    SectionHeader section4;
    if (!file.ReadSectionHeader(4, &section4))
        return kDeclined;
    for (const uint32_t distance : kEntry23Distances) {
        const uint32_t offset = section4.PointerToRawData + distance;
        uint8_t block[1024];
        // A candidate that cannot be read ends the search.
        if (!file.IsInFile(offset, 1) || !file.ReadBlockAt(offset, block))
            return kDeclined;
        if (LoadU32(block) == kAutoItMarkerWord)
            return Report(finding, offset, kHeaderSize);
    }
    return kDeclined;
}

int Locate12(const TargetFile &file, Finding *finding) {
    for (const uint32_t offset : kEntry12Offsets) {
        uint8_t block[100];
        // An offset at the very end passes here, and a short block is looked at: only its marker word counts.
        if (AsSigned(offset) > file.file_size || !file.SeekExactly(offset))
            return kDeclined;
        file.ReadCleared(block);
        if (LoadU32(block) == kAutoItMarkerWord)
            return Report(finding, offset, kHeaderSize);
    }
    return kDeclined;
}

int Locate0(const TargetFile &file, Finding *finding) {
    SectionHeader section3;
    if (!file.ReadSectionHeader(3, &section3))
        return kDeclined;
    const uint32_t offset = RawDataEnd(section3);
    if (!file.IsInFile(offset, 1))
        return kDeclined;
    return ReadMarker(file, offset, kEntry0Marker, finding);
}

int Locate5(const TargetFile &file, Finding *finding) {
    return ReadMarker(file, kEntry5Offset, kEntry5Marker, finding);
}

} // namespace tavrik2
