// Installer stubs with NullsoftMarker after the relocation section (entry 40).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/nullsoft/marker_block.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows40 = gate(
    is(NumberOfSections, 6),
    is(Characteristics, 0x102),
    in(SizeOfCode, 0x6E00, 0x7500),
    is(SizeOfUninitializedData, 0x4200),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    is(FileAlignment, 0x200),
    in(ImportSize, 0xB0, 0xC0),
    in(ResourceSize, 0x4000, 0x4200),
    in(ImportAddressTableSize, 0x2D0, 0x300),
    in(last_section::SizeOfRawData, 0x1000, 0x3500),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemDiscardable | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".reloc"));
// clang-format on

} // namespace

constinit const GateView kGate40 = kRows40;

int Locate40(const TargetFile &file, Finding *finding) {
    const uint32_t block_start = RawDataEnd(*file.last_section) + kEntry40Distance;
    return file.IsInFile(block_start, 0) ? SearchOwnBlock<kEntry40Read>(file, block_start, finding) : kDeclined;
}

} // namespace tavrik2
