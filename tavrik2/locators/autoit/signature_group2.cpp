// AutoIt wrappers whose script's signature is scanned for (entries 1, 17, 18, 22 and 30).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/autoit_signature_scan.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows22 = gate(
    either(
        profile('A',
            all(DllCharacteristics, 0x8000),
            is(Characteristics, 0x123),
            one_of(MajorLinkerVersion, {8, 10}),
            is(MinorLinkerVersion, 0),
            in(AddressOfEntryPoint, 0x16000, 0x54000),
            one_of(BaseOfData, {0x67000, 0x82000}),
            in(NumberOfSections, 4, 7),
            in(SizeOfCode, 0x65000, 0xA3000),
            is(ImageBase, 0x400000),
            is(Subsystem, 2),
            in(ImportSize, 0x100, 0x155),
            in(ImportAddressTableSize, 0x700, 0x850),
            in(first_section::SizeOfRawData, 0x65000, 0x81000),
            all(first_section::Characteristics, kMemReadExecute | kCntCode)),
        profile('B',
            is(DllCharacteristics, 0x8000),
            is(Characteristics, 0x123),
            is(MajorLinkerVersion, 10),
            is(MinorLinkerVersion, 0),
            in(AddressOfEntryPoint, 0x104300, 0x104400),
            is(BaseOfData, 0x1000),
            is(NumberOfSections, 5),
            in(SizeOfCode, 0x7400, 0x7800),
            is(SizeOfUninitializedData, 0x8E800),
            is(Subsystem, 2),
            in(ImportSize, 0x150, 0x180),
            in(ResourceSize, 0x58000, 0x59000),
            in(first_section::SizeOfRawData, 0x1D00, 0x2000),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntCode)),
        profile('C',
            is(Characteristics, 0x10F),
            is(MajorLinkerVersion, 6),
            in(AddressOfEntryPoint, 0x1500, 0x1800),
            is(BaseOfData, 0x2000),
            is(NumberOfSections, 6),
            in(SizeOfCode, 0x800, 0xC00),
            is(SizeOfUninitializedData, 0),
            is(Subsystem, 2),
            in(ImportSize, 0x50, 0xA0),
            in(ResourceSize, 0x15000, 0x16000),
            is(first_section::PointerToRawData, 0x400),
            is(first_section::Characteristics, kMemReadExecute | kCntCode),
            name(last_section::Name, ".rrdata"),
            is(last_section::Characteristics, kMemReadWriteExecute | kCntCode)),
        profile('D',
            is(NumberOfSections, 4),
            is(Characteristics, 0x10F),
            in(AddressOfEntryPoint, 0x42200, 0x42400),
            in(SizeOfCode, 0x4E000, 0x50000),
            is(SizeOfUninitializedData, 0),
            is(Subsystem, 2),
            is(MajorLinkerVersion, 7),
            is(MinorLinkerVersion, 10),
            is(BaseOfData, 0x50000),
            is(DllCharacteristics, 0x8000),
            in(ImportSize, 0x100, 0x150),
            in(ResourceSize, 0x15000, 0x16000),
            is(first_section::PointerToRawData, 0x400),
            is(first_section::Characteristics, kMemReadExecute | kCntCode),
            name(last_section::Name, ".rsrc"),
            is(last_section::Characteristics, kMemRead | kCntInitializedData))),
    any(name(first_section::Name, ".text"), name(first_section::Name, ".neolit")));

constexpr auto kRows17 = gate(
    is(NumberOfSections, 4),
    is(Characteristics, 0x123),
    is(ImportSize, 0x154),
    is(DllCharacteristics, 0x8000),
    is(MajorLinkerVersion, 9),
    is(MinorLinkerVersion, 0),
    is(ImportAddressTableSize, 0),
    in(AddressOfEntryPoint, 0x16000, 0x17000),
    in(SizeOfCode, 0x80000, 0x81000),
    in(SizeOfInitializedData, 0x1D000, 0x1F000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    is(MajorOperatingSystemVersion, 5),
    is(MinorOperatingSystemVersion, 0),
    is(MajorSubsystemVersion, 5),
    is(MinorSubsystemVersion, 0),
    in(ResourceSize, 0x26000, 0x27000),
    in(first_section::SizeOfRawData, 0x80000, 0x81000),
    in(last_section::SizeOfRawData, 0x26000, 0x27000),
    name(last_section::Name, ".rsrc"),
    name(first_section::Name, ".text"),
    file_size_beyond(0xBB000, 0x1000));

constexpr auto kRows18 = gate(
    either(
        profile('A',
            is(NumberOfSections, 3),
            is(Characteristics, 0x123),
            is(DllCharacteristics, 0x8000),
            is(MajorLinkerVersion, 9),
            is(MinorLinkerVersion, 0),
            is(ImportSize, 0x3B0),
            is(ImportAddressTableSize, 0),
            in(AddressOfEntryPoint, 0x10E000, 0x10F000),
            in(SizeOfCode, 0x42000, 0x58000),
            in(SizeOfInitializedData, 0x5D000, 0x5F000),
            is(SizeOfUninitializedData, 0xCC000),
            is(Subsystem, 2),
            is(BaseOfCode, 0xCD000),
            is(BaseOfData, 0x10F000),
            is(MajorOperatingSystemVersion, 5),
            is(MinorOperatingSystemVersion, 0),
            is(MajorSubsystemVersion, 5),
            is(MinorSubsystemVersion, 0),
            is(first_section::SizeOfRawData, 0x42000),
            name_ignoring_case(first_section::Name, "UPX1"),
            in(last_section::SizeOfRawData, 0x62900, 0x7D000),
            name(last_section::Name, ".rsrc")),
        profile('B',
            in(NumberOfSections, 5, 6),
            is(Characteristics, 0x123),
            is(DllCharacteristics, 0x8000),
            is(MajorLinkerVersion, 9),
            in(ImportSize, 0x150, 0x160),
            in(ResourceSize, 0x16400, 0x16500),
            in(AddressOfEntryPoint, 0x17700, 0x17900),
            in(SizeOfCode, 0x61500, 0x88E00),
            is(SizeOfInitializedData, 0x26A00),
            is(Subsystem, 2),
            is(SectionAlignment, 0x1000),
            is(FileAlignment, 0x200),
            is(BaseOfCode, 0x1000),
            is(BaseOfData, 0x7D000),
            is(MajorOperatingSystemVersion, 5),
            name(first_section::Name, ".text"),
            is(first_section::SizeOfRawData, 0x7BE00),
            is(first_section::Characteristics, kMemReadWriteExecute | kCntCode | kCntInitializedData),
            in(last_section::SizeOfRawData, 0x33000, 0x49000),
            in(last_section::Characteristics, kMemReadWriteExecute | kCntCode | kCntInitializedData, kMemReadWriteExecute | kCntCode | kCntInitializedData | kCntUninitializedData))),
    file_size_beyond(0xA1000, 0x1000));

constexpr auto kRows1 = gate(
    in(NumberOfSections, 4, 7),
    is(Characteristics, 0x123),
    is(Subsystem, 2),
    one_of(DllCharacteristics, {0x8000, 0x8040, 0}),
    one_of(SizeOfCode, {{0x65000, 0x65500}, {0xCC000, 0xCD000}}),
    one_of(SizeOfInitializedData, {{0x2FE00, 0x31000}, {0xAF000, 0xB0000}, {0x1AE000, 0x1AF000}, {0x22D500, 0x22E000}}),
    one_of(SizeOfUninitializedData, {0, {0x66000, 0x66300}}),
    is(MajorLinkerVersion, 8),
    is(MinorLinkerVersion, 0),
    is(MinorOperatingSystemVersion, 0),
    is(MinorSubsystemVersion, 0),
    one_of(MajorImageVersion, {0, 13}),
    one_of(MinorImageVersion, {0, 18}));

constexpr auto kRows30 = gate(
    is(NumberOfSections, 3),
    is(Characteristics, 0x10F),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8000),
    is(SizeOfCode, 0),
    in(SizeOfInitializedData, 0x45500, 0x46500),
    in(SizeOfUninitializedData, 0x69500, 0x6A500),
    is(MajorLinkerVersion, 7),
    is(MinorLinkerVersion, 10),
    is(MinorOperatingSystemVersion, 0),
    is(MinorSubsystemVersion, 0),
    is(MajorImageVersion, 0),
    is(MinorImageVersion, 0),
    in(last_section::SizeOfRawData, 0x29000, 0x38000));
// clang-format on

// The ".rrdata" section that entry 22 demands of files with seven sections.
bool IsExpectedRrdata(const SectionHeader &section) {
    return kEntry22SectionSizeOfRawData.Contains(section.SizeOfRawData) &&
           kEntry22SectionPointerToRawData.Contains(section.PointerToRawData);
}

} // namespace

constinit const GateView kGate1 = kRows1;
constinit const GateView kGate17 = kRows17;
constinit const GateView kGate18 = kRows18;
constinit const GateView kGate22 = kRows22;
constinit const GateView kGate30 = kRows30;

int Locate1(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, file.first_section->PointerToRawData, finding);
}

int Locate17(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry17Start, finding);
}

int Locate18(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, kEntry18Start, finding);
}

int Locate22(const TargetFile &file, Finding *finding) {
    if (file.file_header->NumberOfSections != 7)
        return ReportAutoItSignature(file, file.last_section->PointerToRawData + kEntry22DistanceOther, finding);
    SectionHeader rrdata;
    if (!file.ReadSectionHeader(".rrdata", &rrdata) || !IsExpectedRrdata(rrdata))
        return kDeclined;
    return ReportAutoItSignature(file, rrdata.PointerToRawData + kEntry22DistanceSections7, finding);
}

int Locate30(const TargetFile &file, Finding *finding) {
    return ReportAutoItSignature(file, file.last_section->PointerToRawData, finding);
}

} // namespace tavrik2
