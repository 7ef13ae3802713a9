// AutoIt wrappers whose script's signature is scanned for (entries 2, 3, 4, 6 and 31).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/autoit_signature_scan.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows2 = gate(
    in(NumberOfSections, 3, 6),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 9),
    is(MinorLinkerVersion, 0),
    is(DllCharacteristics, 0x8000),
    is(AddressOfEntryPoint, 0xB11E0),
    is(SizeOfInitializedData, 0xA000),
    is(SizeOfUninitializedData, 0x71000),
    is(BaseOfCode, 0x72000),
    is(BaseOfData, 0xB2000),
    is(ImageBase, 0x400000),
    is(Subsystem, 2),
    is(ImportSize, 0x3B0),
    is(first_section::Characteristics, kMemReadWriteExecute | kCntInitializedData));

constexpr auto kRows3 = gate(
    is(NumberOfSections, 5),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    is(DllCharacteristics, 0x8000),
    is(AddressOfEntryPoint, 0x1193AC),
    is(SizeOfInitializedData, 0x88800),
    is(SizeOfUninitializedData, 0x8E800),
    is(BaseOfCode, 0x119000),
    is(BaseOfData, 0x1000),
    is(ImageBase, 0x400000),
    is(Subsystem, 2),
    is(ImportSize, 0x154),
    is(first_section::Characteristics, kMemReadWriteExecute | kCntCode));

constexpr auto kRows4 = gate(
    is(NumberOfSections, 4),
    is(Characteristics, 0x123),
    in(AddressOfEntryPoint, 0x16000, 0x18000),
    one_of(MajorLinkerVersion, {9, 10}),
    is(MinorLinkerVersion, 0),
    in(BaseOfData, 0x82000, 0x83000),
    is(MajorOperatingSystemVersion, 5),
    is(MajorSubsystemVersion, 5),
    is(Subsystem, 2),
    is(FileAlignment, 0x200),
    is(SectionAlignment, 0x1000),
    in(ImportVirtualAddress, 0x8D000, 0x8F000));

constexpr auto kRows6 = gate(
    in(NumberOfSections, 3, 12),
    all(Characteristics, 0x122),
    in(MajorLinkerVersion, 9, 11),
    is(MinorLinkerVersion, 0),
    all(DllCharacteristics, 0x8000),
    is(Subsystem, 2),
    either(
        variant(1,
            is(NumberOfSections, 3),
            one_of(SizeOfUninitializedData, {0x9B000, 0x8B000}),
            one_of(BaseOfCode, {0x9C000, 0x8C000}),
            one_of(BaseOfData, {0xF1000, 0xE1000}),
            is(ImageBase, 0x400000),
            is(ImportSize, 0x424),
            name(first_section::Name, "UPX1"),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntInitializedData)),
        variant(2,
            one_of(NumberOfSections, {5, 8, 12}),
            is(BaseOfCode, 0x1000),
            in(BaseOfData, 0x7A000, 0x8E000),
            is(ImageBase, 0x400000),
            in(ImportSize, 0x150, 0x180),
            name(first_section::Name, ".text"),
            all(first_section::Characteristics, kMemReadExecute | kCntCode))));

constexpr auto kRows31 = gate(
    one_of(NumberOfSections, {7, 10, 11}),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 9),
    is(MinorLinkerVersion, 0),
    is(DllCharacteristics, 0x8000),
    is(AddressOfEntryPoint, 0x17770),
    is(Subsystem, 2),
    is(ExportSize, 0),
    in(ImportSize, 0x140, 0x170),
    is(ImportAddressTableSize, 0),
    name_ignoring_case(first_section::Name, ".text"),
    all(first_section::Characteristics, kMemReadWriteExecute | kCntCode));
// clang-format on

uint32_t Start6(uint16_t section_count) {
    switch (section_count) {
    case 3:
        return kEntry6StartSections3;
    case 5:
        return kEntry6StartSections5;
    case 8:
        return kEntry6StartSections8;
    default:
        return kEntry6StartSections12;
    }
}

} // namespace

constinit const GateView kGate2 = kRows2;
constinit const GateView kGate3 = kRows3;
constinit const GateView kGate4 = kRows4;
constinit const GateView kGate6 = kRows6;
constinit const GateView kGate31 = kRows31;

int Locate2(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry2Start, finding);
}

int Locate3(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry3Start, finding);
}

int Locate4(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, file.last_section->PointerToRawData, finding);
}

int Locate6(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, Start6(file.file_header->NumberOfSections), finding);
}

int Locate31(const TargetFile &file, Finding *finding) {
    SectionHeader resources;
    if (!file.ReadSectionHeader(".rsrc", &resources))
        return kDeclined;
    // The builds keep the script at a file offset that equals the section's address.
    return ReportAutoItSignature(file, resources.VirtualAddress, finding);
}

} // namespace tavrik2
