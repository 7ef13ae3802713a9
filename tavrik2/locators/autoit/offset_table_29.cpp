// AutoIt wrappers known build by build: four layouts, 76 offsets (entry 29).

#include "tavrik2/locators/autoit/offset_tables.h"
#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows29 = gate(
    either(
        profile('A',
            is(Characteristics, 0x123),
            in(MajorLinkerVersion, 8, 9),
            is(MinorLinkerVersion, 0),
            in(MajorOperatingSystemVersion, 4, 5),
            in(MajorSubsystemVersion, 4, 5),
            is(Subsystem, 2),
            is(DllCharacteristics, 0x8000),
            is(ImageBase, 0x400000),
            is(FileAlignment, 0x200),
            is(SectionAlignment, 0x1000)),
        profile('B',
            is(Characteristics, 0x103),
            is(MajorLinkerVersion, 10),
            is(MinorLinkerVersion, 0),
            is(MajorOperatingSystemVersion, 5),
            is(MajorSubsystemVersion, 5),
            is(Subsystem, 2),
            is(DllCharacteristics, 0),
            is(ImageBase, 0x400000),
            is(FileAlignment, 0x200),
            is(SectionAlignment, 0x1000)),
        profile('C',
            is(Characteristics, 0x10F),
            is(MajorLinkerVersion, 6),
            is(MinorLinkerVersion, 0),
            is(MajorOperatingSystemVersion, 4),
            is(MajorSubsystemVersion, 4),
            is(Subsystem, 2),
            is(DllCharacteristics, 0),
            is(ImageBase, 0x400000),
            is(FileAlignment, 0x1000),
            is(SectionAlignment, 0x1000))),
    either(
        variant(1,
            is(BaseOfData, 0x8D000),
            is(BaseOfCode, 0x1000),
            is(ImportVirtualAddress, 0x9908C),
            is(ImportSize, 0x104)),
        variant(2,
            is(BaseOfData, 0x7D000),
            is(BaseOfCode, 0x1000)),
        variant(3,
            is(BaseOfData, 0x11000),
            is(BaseOfCode, 0x1000),
            is(ImportVirtualAddress, 0xFF84),
            is(ImportSize, 0x28)),
        variant(4,
            is(BaseOfData, 0x67000),
            is(BaseOfCode, 0x1000),
            one_of(ImportVirtualAddress, {0x72BBC, 0x72EFC}),
            is(ImportSize, 0x118))));

// clang-format on

constexpr uint32_t kMarkers[] = {kAutoItMarkerWord};

} // namespace

constinit const GateView kGate29 = kRows29;

// clang-format off
// SizeOfCode, SizeOfInitializedData, resource directory, anchor, direction, distance, section. The order decides.
constinit const OffsetProbeRow kOffsets29[76] = {
    {0x75000, 0x38000, 0x9C000, NamedSectionStart, After, 0xCA00, ".rsrc"},
    {0x74800, 0x3FC00, 0x9F000, NamedSectionStart, After, 0x210C00, ".rsrc"},
    {0x74800, 0x3FC00, 0x9F000, NamedSectionStart, After, 0x21FC00, ".rsrc"},
    {0x74800, 0x3FC00, 0x9F000, NamedSectionStart, After, 0x230C00, ".rsrc"},
    {0x74800, 0x3FC00, 0x9F000, NamedSectionStart, After, 0x27DC00, ".rsrc"},
    {0x74800, 0x3FC00, 0x9F000, LastSectionEnd, After, 0x1E8000, ""},
    {0x74800, 0x3FC00, 0x9F000, LastSectionStart, After, 0x304000, ""},
    {0x5000, 0x44000, 0x9000, LastSectionStart, After, 0x17E00, ""},
    {0x10000, 0x3000, 0x13000, EndOfFile, Before, 0x2FE0, ""},
    {0x3EE00, 0x26A00, 0xA2000, LastSectionEnd, After, 0x27600, ""},
    {0x7BE00, 0x19800, 0xA2000, LastSectionEnd, After, 0x13000, ""},
    {0x7BE00, 0x26A00, 0xA2000, LastSectionStart, After, 0x7000, ""},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x28600, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x29600, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x25600, ".rsrc"},
    {0x7BE00, 0x26C00, 0xA2000, LastSectionStart, Before, 0x2EE00, ""},
    {0x7BE00, 0x26A00, 0xA2000, LastSectionStart, After, 0x600, ""},
    {0x7BE00, 0xD1600, 0xA2000, LastSectionStart, After, 0x11000, ""},
    {0x7BE00, 0x35600, 0xA2000, LastSectionStart, After, 0, ""},
    {0xC4E00, 0xE9000, 0xB0000, LastSectionStart, After, 0x16800, ""},
    {0x8B800, 0x4CC00, 0xB2000, LastSectionStart, After, 0x19000, ""},
    {0x8B800, 0x4CC00, 0xB2000, LastSectionStart, After, 0x21000, ""},
    {0x8B800, 0x4CC00, 0xB2000, LastSectionStart, After, 0x2D000, ""},
    {0x8B200, 0x19C00, 0xA5000, NamedSectionStart, Before, 0x66400, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, EndOfFile, Before, 0x4200, ""},
    {0x7BE00, 0x26C00, 0xA2000, EndOfFile, Before, 0x17600, ""},
    {0x7BE00, 0xC2A00, 0xA2000, EndOfFile, Before, 0x17600, ""},
    {0x7BE00, 0x26A00, 0xA2000, LastSectionStart, After, 0xF000, ""},
    {0x7BE00, 0x26A00, 0xA2000, LastSectionStart, After, 0x22000, ""},
    {0x7BE00, 0x26A00, 0xA2000, LastSectionStart, After, 0x27600, ""},
    {0x7BE00, 0x26C00, 0xA2000, LastSectionStart, After, 0x16800, ""},
    {0x7BE00, 0x2D600, 0xA2000, NamedSectionStart, After, 0x8C00, ".rsrc"},
    {0x7BE00, 0x26C00, 0xA2000, NamedSectionStart, After, 0x16600, ".rsrc"},
    {0x7BE00, 0x26C00, 0xA2000, NamedSectionStart, After, 0x16800, ".rsrc"},
    {0x7BE00, 0x26C00, 0xA2000, NamedSectionStart, After, 0x27800, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x16600, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x16800, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x26000, ".rsrc"},
    {0x7BE00, 0x26A00, 0xA2000, NamedSectionStart, After, 0x27800, ".rsrc"},
    {0x7BE00, 0x29400, 0xA2000, NamedSectionStart, After, 0x2000, ".rsrc"},
    {0x7BE00, 0x29400, 0xA2000, NamedSectionStart, After, 0x12000, ".rsrc"},
    {0x7BE00, 0x29400, 0xA2000, NamedSectionStart, After, 0x19000, ".rsrc"},
    {0x7BE00, 0x29400, 0xA2000, NamedSectionStart, After, 0x1B000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, LastSectionStart, After, 0x22000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionStart, After, 0x28000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionStart, After, 0x29000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionStart, After, 0xD0000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionEnd, After, 0x1000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionEnd, After, 0xF2000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionEnd, After, 0x103000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionEnd, After, 0x127000, ""},
    {0x7BE00, 0x12800, 0xA5000, LastSectionEnd, After, 0x138000, ""},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x3000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x13000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x15000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x16000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x17000, ".rsrc"},
    {0x7BE00, 0x12800, 0xA5000, NamedSectionStart, After, 0x4F000, ".rsrc"},
    {0x7BE00, 0x3D200, 0xA2000, NamedSectionStart, After, 0x2000, ".rsrc"},
    {0x7BE00, 0x67400, 0xE0000, NamedSectionStart, After, 0x19000, ".rsrc"},
    {0x7BE00, 0xA5400, 0x11E000, NamedSectionStart, After, 0x19000, ".rsrc"},
    {0x12B400, 0xD1600, 0xA2000, NamedSectionStart, After, 0x4B200, ".rsrc"},
    {0xB9E00, 0x2D600, 0xA2000, LastSectionStart, After, 0x8C00, ""},
    {0xAAE00, 0x100600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0xABE00, 0x101600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0xDAE00, 0x130600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0xDBE00, 0x131600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0xDCE00, 0x132600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0x107E00, 0x15D600, 0xA2000, NamedSectionStart, After, 0x36200, ".rsrc"},
    {0x65200, 0x6FE00, 0xCF000, NamedSectionStart, After, 0x35000, ".rsrc"},
    {0x65200, 0x12FE00, 0x18F000, NamedSectionStart, After, 0x35000, ".rsrc"},
    {0x5F200, 0x22A00, 0x8F000, EndOfFile, Before, 0x71C00, ""},
    {0x5E200, 0x22A00, 0x8F000, LastSectionStart, After, 0x9DC00, ""},
    {0x5E200, 0x22A00, 0x8F000, NamedSectionStart, After, 0x9DC00, ".rsrc"},
    {0x60800, 0x22A00, 0x8F000, EndOfFile, Before, 0x71C00, ""},
    {0, 0x9E200, 0x8F000, EndOfFile, Before, 0x839DC, ""},
};
// clang-format on

int Locate29(const TargetFile &file, Finding *finding) {
    return ProbeOffsetTable(file, finding, kOffsets29, false, kMarkers);
}

} // namespace tavrik2
