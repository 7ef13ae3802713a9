// Programs that carry a cabinet as a raw-data resource (entry 38).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows38 = gate(
    either(
        profile('A',
            is(NumberOfSections, 3),
            in(SizeOfCode, 0x8000, 0xA600),
            at_least(SizeOfInitializedData, 0x7500),
            at_most(SizeOfUninitializedData, 0xABE7),
            in(AddressOfEntryPoint, 0x2000, 0x7000),
            is(BaseOfCode, 0x1000),
            is(ImageBase, 0x1000000),
            is(FileAlignment, 0x200),
            is(MajorOperatingSystemVersion, 5),
            in(MajorImageVersion, 4, 13),
            is(MinorSubsystemVersion, 0),
            is(Subsystem, 2),
            is(ImportSize, 0x8C),
            at_least(ResourceSize, 0x7000),
            in(DebugSize, 0x18, 0x40),
            in(ImportAddressTableSize, 0x180, 0x280),
            in(first_section::VirtualSize, 0x8000, 0xB000),
            name(first_section::Name, ".text"),
            name(last_section::Name, ".rsrc")),
        profile('B',
            in(NumberOfSections, 4, 5),
            is(Characteristics, 0x102),
            in(MajorLinkerVersion, 8, 11),
            in(SizeOfCode, 0x6500, 0xC000),
            in(SizeOfInitializedData, 0x27000, 0x4A0000),
            is(SizeOfUninitializedData, 0),
            in(AddressOfEntryPoint, 0x6000, 0x7000),
            is(BaseOfCode, 0x1000),
            one_of(ImageBase, {0x1000000, 0x400000}),
            is(FileAlignment, 0x200),
            is(MajorOperatingSystemVersion, 6),
            is(MajorImageVersion, 6),
            is(Subsystem, 2),
            is(DllCharacteristics, 0x8140),
            in(ImportSize, 0xA0, 0xC0),
            in(BaseRelocationSize, 0x800, 0x860),
            is(DebugSize, 0x1C),
            in(ImportAddressTableSize, 0x200, 0x300),
            name(first_section::Name, ".text"),
            name(last_section::Name, ".reloc"))));
// clang-format on

} // namespace

constinit const GateView kGate38 = kRows38;

int Locate38(const TargetFile &file, Finding *finding) {
    ResourceDataEntry resources[kEntry38Capacity];
    uint32_t count;
    if (FindResourceDataEntries(file, file.resource_rva(), kEntry38ResourceType, resources, &count) != 1)
        return kDeclined;
    const uint32_t start = file.OffsetOf(resources[0].OffsetToData);
    if (!file.SeekExactly(start))
        return kDeclined;
    uint8_t block[kEntry38Read];
    const uint32_t read = file.ReadCleared(block);
    if (read < sizeof CabinetMarker)
        return kDeclined;
    const uint32_t length = read < sizeof block ? read : static_cast<uint32_t>(sizeof block);
    const int32_t place = FindBytePattern(block, static_cast<int32_t>(length), CabinetMarker);
    if (place < 0)
        return kDeclined;
    return Report(finding, start + AsOffset(place), kBlockSize);
}

} // namespace tavrik2
