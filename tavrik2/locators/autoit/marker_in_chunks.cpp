// AutoIt wrappers whose script's marker is somewhere after a known start (entries 13, 14 and 15).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/chunk_search.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows13 = gate(
    either(
        profile('A',
            in(NumberOfSections, 3, 6),
            all(Characteristics, 0x102),
            at_most(Characteristics, 0x123),
            in(AddressOfEntryPoint, 0x50000, 0x110000),
            is(Subsystem, 2),
            in(MajorLinkerVersion, 7, 9),
            one_of(MinorLinkerVersion, {0, 10}),
            is(FileAlignment, 0x200),
            all(DllCharacteristics, 0x8000),
            is(MinorOperatingSystemVersion, 0),
            one_of(SizeOfInitializedData, {{0x20000, 0xCE000}, {0x6000, 0x16000}}),
            one_of(SizeOfUninitializedData, {0, {0x5E000, 0x6A000}}),
            in(ImportSize, 0x80, 0x350),
            at_most(BaseRelocationSize, 0xBB50),
            one_of(first_section::VirtualSize, {{0xE000, 0x16000}, {0x25000, 0x2F000}, {0x59000, 0x120000}}),
            either(
                variant(1,
                    one_of(SizeOfCode, {0x7200, {0x35000, 0x110000}}),
                    one_of(ResourceSize, {{0, 0x2B000}, {0x90000, 0xF0000}})),
                variant(2,
                    is(SizeOfCode, 0xFFFB6200),
                    is(ResourceSize, 0),
                    is(ImportAddressTableSize, 0x750)))),
        profile('B',
            in(NumberOfSections, 7, 13),
            is(Characteristics, 0x123),
            one_of(AddressOfEntryPoint, {{0x50000, 0xFB000}, {0x140000, 0x190000}}),
            is(Subsystem, 2),
            is(MajorLinkerVersion, 8),
            is(MinorLinkerVersion, 0),
            is(FileAlignment, 0x200),
            is(DllCharacteristics, 0x8000),
            is(MajorOperatingSystemVersion, 4),
            is(MinorOperatingSystemVersion, 0),
            is(MinorSubsystemVersion, 0),
            one_of(SizeOfCode, {{0x64000, 0xA0000}, {0x14000, 0x15000}}),
            in(SizeOfInitializedData, 0x20000, 0x3F000),
            is(SizeOfUninitializedData, 0),
            in(ImportSize, 0x100, 0x300),
            in(ResourceSize, 0x8000, 0x16000),
            one_of(first_section::VirtualSize, {{0x1000, 0x10000}, {0x15000, 0x2D000}, {0x40000, 0x7B000}}))));

constexpr auto kRows14 = gate(
    is(NumberOfSections, 3),
    in(AddressOfEntryPoint, 0xB1000, 0xB2000),
    is(SizeOfCode, 0x40000),
    is(SizeOfInitializedData, 0xA000),
    is(SizeOfUninitializedData, 0x71000),
    is(SectionAlignment, 0x1000),
    is(FileAlignment, 0x200),
    is(BaseOfCode, 0x72000),
    is(BaseOfData, 0xB2000),
    is(ImportSize, 0x3B0),
    in(ResourceSize, 0x9C00, 0x38000),
    all(DllCharacteristics, 0x8000));

constexpr auto kRows15 = gate(
    in(NumberOfSections, 6, 9),
    at_most(Characteristics, 0x123),
    in(AddressOfEntryPoint, 0x50000, 0xFB000),
    is(BaseOfData, 0x67000),
    in(SizeOfInitializedData, 0x3D000, 0x3E000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    is(MajorLinkerVersion, 8),
    is(MinorLinkerVersion, 0),
    is(FileAlignment, 0x200),
    in(ImportSize, 0x200, 0x300),
    in(ResourceSize, 0x15000, 0x16000),
    all(DllCharacteristics, 0x8000));
// clang-format on

// What entry 15 demands of section 0 as it is in the file.
bool IsExpectedSection0(const SectionHeader &section) {
    return kEntry15SectionVirtualSize.Contains(section.VirtualSize) &&
           kEntry15SectionSizeOfRawData.Contains(section.SizeOfRawData);
}

} // namespace

constinit const GateView kGate13 = kRows13;
constinit const GateView kGate14 = kRows14;
constinit const GateView kGate15 = kRows15;

int Locate13(const TargetFile &file, Finding *finding) {
    const int32_t start = AsSigned(file.OffsetOf(file.resource_rva()));
    return SearchChunks(file, {start, file.file_size, kEntry13Blocks}, finding);
}

int Locate14(const TargetFile &file, Finding *finding) {
    return SearchChunks(file, {AsSigned(kEntry14Start), file.file_size, kEntry14Blocks}, finding);
}

int Locate15(const TargetFile &file, Finding *finding) {
    SectionHeader section0;
    if (!file.ReadSectionHeader(kEntry15SectionIndex, &section0) || !IsExpectedSection0(section0))
        return kDeclined;
    const int32_t start = AsSigned(section0.PointerToRawData);
    return SearchChunks(file, {start, AsSigned(RawDataEnd(section0)), kEntry15Blocks}, finding);
}

} // namespace tavrik2
