/* What a payload locator receives and reports, and the table of all of them. */
#ifndef TAVRIK2_PAYLOAD_LOCATOR_H
#define TAVRIK2_PAYLOAD_LOCATOR_H

#include "abi.h"
#include "file_stream.h"
#include "section_header.h"

TAVRIK_PACKED_BEGIN

/* The COFF file header, as it is in the file. */
typedef struct TAVRIK_PACKED FileHeader {
    uint16_t Machine;
    uint16_t NumberOfSections;
    uint32_t TimeDateStamp;
    uint32_t PointerToSymbolTable;
    uint32_t NumberOfSymbols;
    uint16_t SizeOfOptionalHeader;
    uint16_t Characteristics;
} FileHeader;

/* The host's optional-header record: the 64-bit (PE32+) shape, also for 32-bit images, whose image-base slot holds
 * ImageBase in its low half and BaseOfData in its high half, and whose four stack and heap sizes are widened. For a
 * PE32+ image it is the header as it is in the file. Magic stays the file's; any other magic than that of PE32+ (0x20B)
 * is best read as PE32. What the file does not have is zero. */
typedef struct TAVRIK_PACKED OptionalHeader {
    uint16_t Magic;
    uint8_t MajorLinkerVersion;
    uint8_t MinorLinkerVersion;
    uint32_t SizeOfCode;
    uint32_t SizeOfInitializedData;
    uint32_t SizeOfUninitializedData;
    uint32_t AddressOfEntryPoint;
    uint32_t BaseOfCode;
    uint32_t ImageBase;  /* the low half of a 64-bit image's base */
    uint32_t BaseOfData; /* the high half of a 64-bit image's base */
    uint32_t SectionAlignment;
    uint32_t FileAlignment;
    uint16_t MajorOperatingSystemVersion;
    uint16_t MinorOperatingSystemVersion;
    uint16_t MajorImageVersion;
    uint16_t MinorImageVersion;
    uint16_t MajorSubsystemVersion;
    uint16_t MinorSubsystemVersion;
    uint32_t Win32VersionValue;
    uint32_t SizeOfImage;
    uint32_t SizeOfHeaders;
    uint32_t CheckSum;
    uint16_t Subsystem;
    uint16_t DllCharacteristics;
    uint64_t SizeOfStackReserve;
    uint64_t SizeOfStackCommit;
    uint64_t SizeOfHeapReserve;
    uint64_t SizeOfHeapCommit;
    uint32_t LoaderFlags;
    uint32_t NumberOfRvaAndSizes;
} OptionalHeader;

/* The data directories as (VirtualAddress, Size) pairs: word 2k and word 2k + 1 belong to directory k. All 32 words are
 * there, whatever the file says; a directory that the file does not have is zero: one at or beyond NumberOfRvaAndSizes,
 * one that SizeOfOptionalHeader has no room for (0 counts as room for all), and one cut off by the end of the file. */
#define DATA_DIRECTORY_WORDS 32
/* The entry-point bytes that locators may read. All are there: zero where the file ends before, or where nothing maps
 * the address. The address is mapped by the section that holds it and has raw data (the last such in the table); below
 * all sections the file offset is the address. */
#define ENTRY_CODE_BYTES 22

/* What a locator found. */
enum PayloadKind {
    PAYLOAD_NULLSOFT = 81, /* a Nullsoft installer header */
    PAYLOAD_AUTOIT = 82,   /* an AutoIt compiled-script marker */
    PAYLOAD_RAR = 111,     /* a RAR archive signature */
    PAYLOAD_CABINET = 113  /* a cabinet signature */
};

typedef struct TAVRIK_PACKED LocatorResult {
    uint32_t kind;   /* a PayloadKind */
    uint32_t offset; /* file offset of the marker or block */
    uint32_t size;   /* bytes reported at offset: 256 or 4096 */
} LocatorResult;

/* A locator: recognises one or a few builds by their headers and finds the payload in the file.
 *
 * - stream: the host's stream over the open file; its position afterwards is unspecified
 * - handle: the host's handle of the open file
 * - file_size: in bytes, below 2 GiB: offsets are compared with it as signed values
 * - data_dirs: DATA_DIRECTORY_WORDS words, read only
 * - file_header: the file's, read only
 * - opt_header: the file's in the shape above, read only
 * - first_section: a section header, zeros for a file without sections. Ask each locator twice where this gives two
 *   headers: with the first header of the section table, and with that of the section whose addresses,
 *   max(VirtualSize, SizeOfRawData) long, hold BaseOfCode (the last such in the table). Locators are written for
 *   either: most for the first header, those for packed files whose first section has no raw data for the other one.
 *   Either alone loses findings; both may find the same.
 * - last_section: the last header of the table of NumberOfSections headers that lies wholly in the file; zeros when
 *   there is none
 * - entry_code: at least ENTRY_CODE_BYTES bytes from the entry point
 * - result: the caller's; written on a match only
 *
 * Returns 1 on a match, else 0. Keeps no state; owns nothing that it is given; no pointer may be null. The records may
 * hold any values and the stream any bytes: hostile files are what it is for. Any number of threads may call any
 * locators at once, each with a stream of its own; they need no initialisation. Each entry is a test of its own: call
 * all of them, since several may find payloads, at the same offset too. Nearly every call ends at the records, without
 * a call of the stream; where one reads, it reads a few blocks or the rest of the file in blocks. */
typedef int (*PayloadLocator)(FileStream *stream, uint32_t handle, int32_t file_size, const uint32_t *data_dirs,
                              const FileHeader *file_header, const OptionalHeader *opt_header,
                              const SectionHeader *first_section, const SectionHeader *last_section,
                              const uint8_t *entry_code, LocatorResult *result);

typedef struct TAVRIK_PACKED LocatorTableEntry {
    PayloadLocator locator;
    uint32_t flags; /* for the host; the module does not read it; no bit of it keeps the entry from being called */
} LocatorTableEntry;

#define LOCATOR_COUNT 50

/* The entries, followed at once by their count. */
typedef struct TAVRIK_PACKED LocatorTableImage {
    LocatorTableEntry entries[LOCATOR_COUNT];
    uint32_t count; /* LOCATOR_COUNT */
} LocatorTableImage;

TAVRIK_PACKED_END

TAVRIK_EXTERN_C_BEGIN

/* Hands out the locator table in place: the address of its first entry and the number of entries (50).
 * Returns 1; 0 when an argument is null, and then writes nothing. Works before initialisation. The table is the
 * module's and stays valid while the module is loaded. Any thread. */
TAVRIK_API uint32_t HeurGetLocatorTable(const LocatorTableEntry **out_table, uint32_t *out_count);
typedef uint32_t (*HeurGetLocatorTableFunction)(const LocatorTableEntry **out_table, uint32_t *out_count);

TAVRIK_EXTERN_C_END

TAVRIK_ASSERT_SIZE(FileHeader, 20);
TAVRIK_ASSERT_OFFSET(FileHeader, Machine, 0);
TAVRIK_ASSERT_OFFSET(FileHeader, NumberOfSections, 2);
TAVRIK_ASSERT_OFFSET(FileHeader, TimeDateStamp, 4);
TAVRIK_ASSERT_OFFSET(FileHeader, PointerToSymbolTable, 8);
TAVRIK_ASSERT_OFFSET(FileHeader, NumberOfSymbols, 12);
TAVRIK_ASSERT_OFFSET(FileHeader, SizeOfOptionalHeader, 16);
TAVRIK_ASSERT_OFFSET(FileHeader, Characteristics, 18);

TAVRIK_ASSERT_SIZE(OptionalHeader, 112);
TAVRIK_ASSERT_OFFSET(OptionalHeader, Magic, 0);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MajorLinkerVersion, 2);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MinorLinkerVersion, 3);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfCode, 4);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfInitializedData, 8);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfUninitializedData, 12);
TAVRIK_ASSERT_OFFSET(OptionalHeader, AddressOfEntryPoint, 16);
TAVRIK_ASSERT_OFFSET(OptionalHeader, BaseOfCode, 20);
TAVRIK_ASSERT_OFFSET(OptionalHeader, ImageBase, 24);
TAVRIK_ASSERT_OFFSET(OptionalHeader, BaseOfData, 28);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SectionAlignment, 32);
TAVRIK_ASSERT_OFFSET(OptionalHeader, FileAlignment, 36);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MajorOperatingSystemVersion, 40);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MinorOperatingSystemVersion, 42);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MajorImageVersion, 44);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MinorImageVersion, 46);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MajorSubsystemVersion, 48);
TAVRIK_ASSERT_OFFSET(OptionalHeader, MinorSubsystemVersion, 50);
TAVRIK_ASSERT_OFFSET(OptionalHeader, Win32VersionValue, 52);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfImage, 56);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfHeaders, 60);
TAVRIK_ASSERT_OFFSET(OptionalHeader, CheckSum, 64);
TAVRIK_ASSERT_OFFSET(OptionalHeader, Subsystem, 68);
TAVRIK_ASSERT_OFFSET(OptionalHeader, DllCharacteristics, 70);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfStackReserve, 72);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfStackCommit, 80);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfHeapReserve, 88);
TAVRIK_ASSERT_OFFSET(OptionalHeader, SizeOfHeapCommit, 96);
TAVRIK_ASSERT_OFFSET(OptionalHeader, LoaderFlags, 104);
TAVRIK_ASSERT_OFFSET(OptionalHeader, NumberOfRvaAndSizes, 108);

TAVRIK_ASSERT_SIZE(LocatorResult, 12);
TAVRIK_ASSERT_OFFSET(LocatorResult, kind, 0);
TAVRIK_ASSERT_OFFSET(LocatorResult, offset, 4);
TAVRIK_ASSERT_OFFSET(LocatorResult, size, 8);

TAVRIK_ASSERT_SIZE(LocatorTableEntry, 12);
TAVRIK_ASSERT_OFFSET(LocatorTableEntry, locator, 0);
TAVRIK_ASSERT_OFFSET(LocatorTableEntry, flags, 8);
TAVRIK_ASSERT_OFFSET(LocatorTableImage, count, LOCATOR_COUNT * 12);

#endif
