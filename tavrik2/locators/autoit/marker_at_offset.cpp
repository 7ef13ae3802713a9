// AutoIt wrappers whose script's marker is at one of a few offsets (entries 0, 5, 12 and 23).

#include <cstring>

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"

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

// Reads `Length` bytes at `offset` and reports the marker that they begin with.
template <uint32_t Length>
int ReadMarker(const TargetFile &file, uint32_t offset, const uint8_t (&marker)[16], Finding *finding) {
    uint8_t block[Length];
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
    if (!file.ReadSectionHeader(kEntry23SectionIndex, &section4))
        return kDeclined;
    for (const uint32_t distance : kEntry23Distance) {
        const uint32_t offset = section4.PointerToRawData + distance;
        uint8_t block[kEntry23Read];
        // A candidate that cannot be read ends the search.
        if (!file.IsInFile(offset, 1) || !file.ReadBlockAt(offset, block))
            return kDeclined;
        if (LoadU32(block) == kAutoItMarkerWord)
            return Report(finding, offset, kHeaderSize);
    }
    return kDeclined;
}

int Locate12(const TargetFile &file, Finding *finding) {
    for (const uint32_t offset : kEntry12Start) {
        uint8_t block[kEntry12Read];
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
    if (!file.ReadSectionHeader(kEntry0SectionIndex, &section3))
        return kDeclined;
    const uint32_t offset = RawDataEnd(section3);
    if (!file.IsInFile(offset, 1))
        return kDeclined;
    return ReadMarker<kEntry0Read>(file, offset, Entry0Marker, finding);
}

int Locate5(const TargetFile &file, Finding *finding) {
    return ReadMarker<kEntry5Read>(file, kEntry5Start, Entry5Marker, finding);
}

} // namespace tavrik2
