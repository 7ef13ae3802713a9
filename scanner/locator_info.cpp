#include "scanner/locator_info.h"

namespace tavrik::scanner {

// Sections are counted from 0, as their headers stand in the table. A "marker" is tested or searched for by its bytes;
// a "scan" reads block after block of 4096 bytes from the place that it is said to start at.
constexpr std::array<LocatorInfo, LOCATOR_COUNT> kLocatorInfo = {{
    /*  0 */ {PAYLOAD_AUTOIT, "four sections, linker 10.0: altered marker right after section 3's raw data"},
    /*  1 */ {PAYLOAD_AUTOIT, "four to seven sections, linker 8.0: scan from the first section's raw data"},
    /*  2 */ {PAYLOAD_AUTOIT, "packed, linker 9.0, code at 0x72000: scan from 0x40000"},
    /*  3 */ {PAYLOAD_AUTOIT, "five sections, linker 10.0, code at 0x119000: scan from 0xC0000"},
    /*  4 */ {PAYLOAD_AUTOIT, "four sections, linker 9.0 or 10.0: scan from the last section's raw data"},
    /*  5 */ {PAYLOAD_AUTOIT, "four sections, linker 10.0, unsigned: altered marker at 0xA7C1F"},
    /*  6 */ {PAYLOAD_AUTOIT, "3, 5, 8 or 12 sections, linker 9 to 11: scan from 0x56000, 0xB0000 or 0xC0000"},
    /*  7 */ {PAYLOAD_NULLSOFT, "six sections, linker 7.10: header 4 bytes after section 4's raw data"},
    /*  8 */
    {PAYLOAD_NULLSOFT, "six or seven sections, linker 6.0: header far behind section 4 or in the last section"},
    /*  9 */ {PAYLOAD_NULLSOFT, "ten sections, linker 2.25: header 0x13359C bytes before the end of the file"},
    /* 10 */ {PAYLOAD_NULLSOFT, "five sections, linker 6.0: header 0xA04 bytes into the last section, .rsrc"},
    /* 11 */ {PAYLOAD_NULLSOFT, "five sections, linker 6: marker from 0x3500 bytes past the start of .rsrc"},
    /* 12 */ {PAYLOAD_AUTOIT, "six to nine sections, known entry code: marker at 0xF2000, 0xFF200 or 0x1CD200"},
    /* 13 */ {PAYLOAD_AUTOIT, "3 to 13 sections, linker 7 to 9: marker searched from the resource directory"},
    /* 14 */ {PAYLOAD_AUTOIT, "packed, three sections, code at 0x72000: marker searched from 0x49800"},
    /* 15 */ {PAYLOAD_AUTOIT, "six to nine sections, linker 8.0: marker searched in the first section's raw data"},
    /* 16 */ {PAYLOAD_AUTOIT, "three to eight sections, code from 0x400: scan from 0x400"},
    /* 17 */ {PAYLOAD_AUTOIT, "four sections, linker 9.0, no import address table: scan from 0xBB000"},
    /* 18 */ {PAYLOAD_AUTOIT, "packed (3 sections) or altered (5 or 6), linker 9: scan from 0xA0000"},
    /* 19 */ {PAYLOAD_AUTOIT, "first section UPX0 or UPX1, linker 8: scan from 0x6C7000"},
    /* 20 */ {PAYLOAD_AUTOIT, "packed, linker 7.10, code at 0x5F000: scan from 0x40000"},
    /* 21 */ {PAYLOAD_AUTOIT, "three to five sections, linker 8.0 to 10.0: scan from 0x5B000"},
    /* 22 */
    {PAYLOAD_AUTOIT,
     "four to seven sections, .text or .neolit first: scan far behind the start of the last or .rrdata"},
    /* 23 */ {PAYLOAD_AUTOIT, "linker 8.0, data at 0x67000: marker 0x14A00 or 0x5CA00 bytes into section 4"},
    /* 24 */ {PAYLOAD_AUTOIT, "2 or 4 to 7 sections, writable code: scan from the first section's raw data"},
    /* 25 */
    {PAYLOAD_AUTOIT, "two sections: marker at a distance behind a manifest that asks for administrator rights"},
    /* 26 */ {PAYLOAD_AUTOIT, "four to six sections: marker behind a manifest that names AutoIt3"},
    /* 27 */ {PAYLOAD_AUTOIT, "never matches: this entry declines every file"},
    /* 28 */
    {PAYLOAD_AUTOIT, "twelve known layouts: marker at one of the 117 places that known code and data sizes name"},
    /* 29 */ {PAYLOAD_AUTOIT, "four known layouts: marker at one of the 76 places that known code and data sizes name"},
    /* 30 */ {PAYLOAD_AUTOIT, "three sections, linker 7.10, no code size: scan from the last section's raw data"},
    /* 31 */ {PAYLOAD_AUTOIT, "7, 10 or 11 sections, linker 9.0: scan from the offset equal to .rsrc's address"},
    /* 32 */ {PAYLOAD_AUTOIT, "3, 4 or 6 sections: script scanned for from the first raw-data resource"},
    /* 33 */
    {PAYLOAD_AUTOIT, "three to five sections, linker 11 to 18: script scanned for from the first raw-data resource"},
    /* 34 */
    {PAYLOAD_AUTOIT, "four to six sections, linker 10.0: altered header scanned for from the resource directory"},
    /* 35 */ {PAYLOAD_NULLSOFT, "three sections, linker 7, no resources: marker behind the last section, .data"},
    /* 36 */ {PAYLOAD_NULLSOFT, "five sections, linker 6, writable .rsrc: marker far behind section 2"},
    /* 37 */ {PAYLOAD_AUTOIT, "five sections: script scanned for from the start of the section .rsrc"},
    /* 38 */
    {PAYLOAD_CABINET, "three to five sections: cabinet in the first 1024 bytes of the first raw-data resource"},
    /* 39 */ {PAYLOAD_RAR, "four or five sections, linker 9.0: archive within 20480 bytes after the last section"},
    /* 40 */ {PAYLOAD_NULLSOFT, "six sections, linker 10.0: marker 0x3000 bytes behind the last section, .reloc"},
    /* 41 */ {PAYLOAD_NULLSOFT, "six sections, linker 10: marker in the last 4096 bytes of the last section, .reloc"},
    /* 42 */ {PAYLOAD_NULLSOFT, "six sections, linker 10: marker one .reloc length behind section 4"},
    /* 43 */ {PAYLOAD_AUTOIT, "four to six sections, linker 9.0: script scanned for from the resource directory"},
    /* 44 */ {PAYLOAD_NULLSOFT, "six sections, linker 10.0: marker 0x1A000 bytes behind the last section, .reloc"},
    /* 45 */ {PAYLOAD_AUTOIT, "four or five sections: header scanned for from the version resource"},
    /* 46 */
    {PAYLOAD_AUTOIT, "two or three sections, linker 8.0: header scanned for from the end of the resource directory"},
    /* 47 */ {PAYLOAD_AUTOIT, "six sections, linker 11.0: script scanned for from the first raw-data resource"},
    /* 48 */ {PAYLOAD_AUTOIT, "four sections, linker 10: header scanned for from one of two message-table resources"},
    /* 49 */
    {PAYLOAD_AUTOIT, "four sections, linker 10.0: header scanned for from the first resource above 0x25000 bytes"},
}};

std::string KindName(uint32_t kind) {
    switch (kind) {
    case PAYLOAD_NULLSOFT:
        return "Nullsoft installer";
    case PAYLOAD_AUTOIT:
        return "AutoIt script";
    case PAYLOAD_RAR:
        return "RAR archive";
    case PAYLOAD_CABINET:
        return "cabinet";
    default:
        return "payload of kind " + std::to_string(kind);
    }
}

} // namespace tavrik::scanner
