/* The PE section header, as it is in the file and as the host hands it over. */
#ifndef TAVRIK2_SECTION_HEADER_H
#define TAVRIK2_SECTION_HEADER_H

#include "abi.h"

TAVRIK_PACKED_BEGIN

typedef struct TAVRIK_PACKED SectionHeader {
    uint8_t Name[8]; /* NUL-padded; no NUL when all 8 bytes are used */
    uint32_t VirtualSize;
    uint32_t VirtualAddress; /* an RVA */
    uint32_t SizeOfRawData;
    uint32_t PointerToRawData; /* a file offset */
    uint32_t PointerToRelocations;
    uint32_t PointerToLinenumbers;
    uint16_t NumberOfRelocations;
    uint16_t NumberOfLinenumbers;
    uint32_t Characteristics;
} SectionHeader;

TAVRIK_PACKED_END

TAVRIK_ASSERT_SIZE(SectionHeader, 40);
TAVRIK_ASSERT_OFFSET(SectionHeader, Name, 0);
TAVRIK_ASSERT_OFFSET(SectionHeader, VirtualSize, 8);
TAVRIK_ASSERT_OFFSET(SectionHeader, VirtualAddress, 12);
TAVRIK_ASSERT_OFFSET(SectionHeader, SizeOfRawData, 16);
TAVRIK_ASSERT_OFFSET(SectionHeader, PointerToRawData, 20);
TAVRIK_ASSERT_OFFSET(SectionHeader, PointerToRelocations, 24);
TAVRIK_ASSERT_OFFSET(SectionHeader, PointerToLinenumbers, 28);
TAVRIK_ASSERT_OFFSET(SectionHeader, NumberOfRelocations, 32);
TAVRIK_ASSERT_OFFSET(SectionHeader, NumberOfLinenumbers, 34);
TAVRIK_ASSERT_OFFSET(SectionHeader, Characteristics, 36);

#endif
