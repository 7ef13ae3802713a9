// Self-extracting RAR stubs whose archive follows the last section (entry 39).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/pe/byte_pattern.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows39 = gate(
    is(Characteristics, 0x103),
    is(SizeOfUninitializedData, 0),
    is(FileAlignment, 0x200),
    is(Subsystem, 2),
    is(MajorLinkerVersion, 9),
    is(MinorLinkerVersion, 0),
    is(MajorOperatingSystemVersion, 5),
    is(MinorOperatingSystemVersion, 0),
    is(MinorSubsystemVersion, 0),
    is(MajorImageVersion, 0),
    is(MinorImageVersion, 0),
    in(ImportSize, 0xD0, 0xE0),
    is(DebugSize, 0x1C),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".rsrc"),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kCntInitializedData),
    either(
        sections(5,
            in(AddressOfEntryPoint, 0xB000, 0xC000),
            in(SizeOfCode, 0x11000, 0x12000),
            is(DllCharacteristics, 0x8500),
            in(ImportAddressTableSize, 0x200, 0x2C0)),
        sections(4,
            in(AddressOfEntryPoint, 0x1D000, 0x1E000),
            is(CheckSum, 0),
            is(DllCharacteristics, 0x8100),
            in(ExportSize, 0x20, 0x50))));
// clang-format on

} // namespace

constinit const GateView kGate39 = kRows39;

int Locate39(const TargetFile &file, Finding *finding) {
    uint32_t position = RawDataEnd(*file.last_section);
    // Only the first block is compared with the file's size; later ones end where the stream does.
    if (!file.IsInFile(position, 1))
        return kDeclined;
    for (uint32_t count = 0; count < kEntry39Blocks; ++count, position += kBlockSize) {
        uint8_t block[kBlockSize];
        if (!file.ReadBlockAt(position, block))
            return kDeclined;
        const int32_t place = FindBytePattern(block, kBlockSize, RarMarker);
        if (place >= 0)
            return Report(finding, position + AsOffset(place), kBlockSize);
    }
    return kDeclined;
}

} // namespace tavrik2
