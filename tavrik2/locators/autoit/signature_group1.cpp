// AutoIt wrappers whose script's signature is scanned for (entries 16, 19, 20, 21 and 24).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/autoit_signature_scan.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows24 = gate(
    in(NumberOfSections, 2, 7),
    is(Characteristics, 0x123),
    is(BaseOfData, 0x7D000),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8000),
    all(first_section::Characteristics, kMemReadWriteExecute | kCntCode),
    either(
        sections(2,
            in(AddressOfEntryPoint, 0x10000, 0xD0000),
            is(SizeOfCode, 0x7BE00),
            is(SizeOfInitializedData, 0x12800),
            is(SizeOfUninitializedData, 0),
            at_least(MajorLinkerVersion, 2),
            is(ImportSize, 0x8F),
            in(first_section::SizeOfRawData, 0x25800, 0x39600)),
        sections(4,
            is(AddressOfEntryPoint, 0x17770),
            in(SizeOfCode, 0x7BE00, 0x9D800),
            in(SizeOfInitializedData, 0x14200, 0x95BA00),
            at_most(SizeOfUninitializedData, 0x7CDB4),
            is(ImportSize, 0x154),
            name(first_section::Name, ".text"),
            in(first_section::SizeOfRawData, 0x7BE00, 0x7C000),
            is(first_section::PointerToRawData, 0x400),
            in(first_section::Characteristics, kMemReadWriteExecute | kCntCode, kMemReadWriteExecute | kCntCode | kCntInitializedData)),
        sections(5,
            is(AddressOfEntryPoint, 0x17770),
            in(SizeOfCode, 0x7BE00, 0x308E00),
            in(SizeOfInitializedData, 0x26A00, 0x35E600),
            at_most(SizeOfUninitializedData, 0x7CDB4),
            is(ImportSize, 0x154),
            name(first_section::Name, ".text"),
            in(first_section::SizeOfRawData, 0x7BE00, 0x7C000),
            is(first_section::PointerToRawData, 0x400),
            in(first_section::Characteristics, kMemReadWriteExecute | kCntCode, kMemReadWriteExecute | kCntCode | kCntInitializedData)),
        sections(6,
            is(AddressOfEntryPoint, 0xF2000),
            is(SizeOfCode, 0x92C00),
            is(SizeOfInitializedData, 0x26A00),
            is(SizeOfUninitializedData, 0),
            is(MinorLinkerVersion, 0),
            is(SectionAlignment, 0x1000),
            is(FileAlignment, 0x200),
            is(ImportSize, 0x154),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntCode)),
        sections(7,
            in(AddressOfEntryPoint, 0x17770, 0x10596E),
            in(SizeOfCode, 0x7BE00, 0x135E00),
            in(SizeOfInitializedData, 0x26A00, 0x26C00),
            is(SizeOfUninitializedData, 0),
            is(ImportSize, 0x154),
            in(first_section::Characteristics, kMemReadWriteExecute | kCntCode, kMemReadWriteExecute | kCntCode | kCntInitializedData))));

constexpr auto kRows16 = gate(
    in(NumberOfSections, 3, 8),
    is(Characteristics, 0x123),
    is(Subsystem, 2),
    all(DllCharacteristics, 0x8000),
    one_of(SizeOfCode, {{0x35000, 0xCD000}, {0x1B0000, 0x1C0000}}),
    is(MinorLinkerVersion, 0),
    is(MinorOperatingSystemVersion, 0),
    is(MinorSubsystemVersion, 0),
    one_of(MajorImageVersion, {0, 13}),
    in(first_section::VirtualSize, 0x35000, 0x93000),
    is(first_section::PointerToRawData, 0x400));

constexpr auto kRows19 = gate(
    is(SizeOfUninitializedData, 0x64000),
    is(MajorLinkerVersion, 8),
    is(Characteristics, 0x123),
    in(NumberOfSections, 3, 4),
    is(DllCharacteristics, 0x8000),
    in(AddressOfEntryPoint, 0x9B000, 0x9C000),
    in(SizeOfCode, 0x36500, 0x37500),
    in(SizeOfInitializedData, 0x7500, 0x8500),
    is(BaseOfData, 0x9C000),
    is(Subsystem, 2),
    in(ImportSize, 0x300, 0x350),
    in(ResourceSize, 0x6E00, 0x7000),
    either(
        variant(1,
            name(first_section::Name, "UPX0"),
            is(first_section::SizeOfRawData, 0),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntUninitializedData)),
        variant(2,
            name(first_section::Name, "UPX1"),
            is(first_section::SizeOfRawData, 0x36E00),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntInitializedData))));

constexpr auto kRows20 = gate(
    is(DllCharacteristics, 0x8000),
    is(MinorLinkerVersion, 10),
    is(MajorLinkerVersion, 7),
    in(NumberOfSections, 3, 7),
    is(Characteristics, 0x10F),
    is(AddressOfEntryPoint, 0x88F50),
    is(SizeOfInitializedData, 0x16000),
    is(SizeOfUninitializedData, 0x5E000),
    is(BaseOfCode, 0x5F000),
    is(BaseOfData, 0x8A000),
    is(ImageBase, 0x400000),
    is(Subsystem, 2),
    is(ImportSize, 0x2EC),
    all(first_section::Characteristics, kMemReadWriteExecute),
    one_of(SizeOfCode, {{0x2B000, 0x42000}, {0x55000, 0x60000}, {0x80000, 0x88000}, {0xD0000, 0xE0000}}));

constexpr auto kRows21 = gate(
    is(Characteristics, 0x123),
    is(DllCharacteristics, 0x8000),
    one_of(MajorLinkerVersion, {8, 9, 10}),
    in(NumberOfSections, 3, 5),
    one_of(AddressOfEntryPoint, {{0x50, 0x70}, {0x16000, 0x18000}, {0x52800, 0x52900}, {0xB1000, 0xB1500}}),
    one_of(SizeOfInitializedData, {0x2000, {0x2D000, 0x2F000}, {0xA000, 0xA500}, {0x44000, 0xE8000}}),
    one_of(SizeOfUninitializedData, {0, {0x5C000, 0x7D500}}),
    in(SizeOfCode, 0x37000, 0x170000),
    one_of(BaseOfCode, {0x1000, 0x5D000, 0x72000}),
    in(BaseOfData, 0x67000, 0xB2000),
    is(ImageBase, 0x400000),
    is(Subsystem, 2),
    is(MinorLinkerVersion, 0),
    in(ImportSize, 0x118, 0x3B0),
    one_of(ImportAddressTableSize, {0, {0x810, 0x850}}),
    any(is(first_section::Characteristics, 0), all(first_section::Characteristics, kMemReadExecute)));
// clang-format on

} // namespace

constinit const GateView kGate16 = kRows16;
constinit const GateView kGate19 = kRows19;
constinit const GateView kGate20 = kRows20;
constinit const GateView kGate21 = kRows21;
constinit const GateView kGate24 = kRows24;

int Locate16(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry16Start, finding);
}

int Locate19(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry19Start, finding);
}

int Locate20(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry20Start, finding);
}

int Locate21(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry21Start, finding);
}

int Locate24(const TargetFile &file, Finding *finding) {
    SectionHeader section0;
    if (!file.ReadSectionHeader(kEntry24SectionIndex, &section0))
        return kDeclined;
    return ReportAutoItSignature(file, section0.PointerToRawData, finding);
}

} // namespace tavrik2
