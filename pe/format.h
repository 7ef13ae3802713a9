/* The PE file format in numbers: signatures, structure sizes, field offsets, flags, directory indices and resource
 * types, with the names of the PE/COFF format. Sizes and offsets are in bytes. Constants only, no reading. */
#ifndef TAVRIK_PE_FORMAT_H
#define TAVRIK_PE_FORMAT_H

#include <cstdint>

namespace tavrik::pe {

// ---- Signatures ----------------------------------------------------------------------------------------------------

inline constexpr uint16_t kDosSignature = 0x5A4D;    // "MZ"
inline constexpr uint32_t kPeSignature = 0x00004550; // "PE", NUL, NUL
inline constexpr uint16_t kMagicPe32 = 0x10B;        // Magic of a 32-bit optional header
inline constexpr uint16_t kMagicPe32Plus = 0x20B;    // and of a 64-bit one
inline constexpr uint16_t kMachineI386 = 0x14C;
inline constexpr uint16_t kMachineAmd64 = 0x8664;

// ---- The DOS header and its stub -----------------------------------------------------------------------------------

inline constexpr uint32_t kDosHeaderSize = 0x40;
inline constexpr uint32_t kLfanewOffset = 0x3C; // e_lfanew: the file offset of the PE signature

/** The linker's list of tools at the end of the DOS stub, in 32-bit words: "DanS", three words of padding and the
 * entries, all xored with a key; then "Rich" and the key. */
namespace rich {

inline constexpr uint32_t kEndMark = 0x68636952;   // "Rich"
inline constexpr uint32_t kStartMark = 0x536E6144; // "DanS", before it is xored
inline constexpr uint32_t kHeaderSize = 16;        // "DanS" and the padding
inline constexpr uint32_t kEntrySize = 8;          // tool and build, then a count
inline constexpr uint32_t kEndSize = 8;            // "Rich" and the key

} // namespace rich

// ---- The file header and the optional header -----------------------------------------------------------------------

inline constexpr uint32_t kFileHeaderOffset = 4; // from the PE signature
inline constexpr uint32_t kFileHeaderSize = 20;
inline constexpr uint32_t kOptionalHeaderOffset = 24; // from the PE signature

namespace file_header {

inline constexpr uint16_t kNumberOfSections = 2;
inline constexpr uint16_t kSizeOfOptionalHeader = 16;

} // namespace file_header

/** Characteristics of the file header. */
namespace file_flag {

inline constexpr uint16_t kRelocsStripped = 0x0001;
inline constexpr uint16_t kExecutableImage = 0x0002;
inline constexpr uint16_t kLargeAddressAware = 0x0020;
inline constexpr uint16_t k32BitMachine = 0x0100;
inline constexpr uint16_t kDll = 0x2000;

} // namespace file_flag

/** Offsets in a 32-bit optional header; OptionalFieldOffset() gives those in a 64-bit one. */
namespace optional_header {

inline constexpr uint16_t kMagic = 0x00;
inline constexpr uint16_t kAddressOfEntryPoint = 0x10;
inline constexpr uint16_t kBaseOfData = 0x18; // in 32-bit headers only
inline constexpr uint16_t kImageBase = 0x1C;
inline constexpr uint16_t kSectionAlignment = 0x20;
inline constexpr uint16_t kMajorImageVersion = 0x2C;
inline constexpr uint16_t kSizeOfHeaders = 0x3C;
inline constexpr uint16_t kSubsystem = 0x44;
inline constexpr uint16_t kSizeOfStackReserve = 0x48; // the first of four sizes that are 8 bytes in a 64-bit header
inline constexpr uint16_t kSizeOfStackCommit = 0x4C;
inline constexpr uint16_t kSizeOfHeapReserve = 0x50;
inline constexpr uint16_t kSizeOfHeapCommit = 0x54;
inline constexpr uint16_t kLoaderFlags = 0x58; // the first field after them
inline constexpr uint16_t kNumberOfRvaAndSizes = 0x5C;
inline constexpr uint16_t kDirectories = 0x60; // also the size of the header without its directories

inline constexpr uint16_t kImageBasePlus = 0x18; // in a 64-bit header: 8 bytes
inline constexpr uint16_t kImageBaseHighPlus = 0x1C;

} // namespace optional_header

/** The offset in a 64-bit optional header of the field (of a wider one its low half) that a 32-bit header has at
 * `offset`. BaseOfData has none. */
constexpr uint16_t OffsetInPe32Plus(uint16_t offset) {
    using namespace optional_header;
    if (offset == kImageBase)
        return kImageBasePlus;
    if (offset >= kLoaderFlags)
        return static_cast<uint16_t>(offset + (kLoaderFlags - kSizeOfStackReserve));
    if (offset >= kSizeOfStackReserve)
        return static_cast<uint16_t>(2 * offset - kSizeOfStackReserve);
    return offset;
}

/** The offset of that field in either header. */
constexpr uint16_t OptionalFieldOffset(uint16_t offset, bool is_pe32_plus) {
    return is_pe32_plus ? OffsetInPe32Plus(offset) : offset;
}

// ---- Data directories ----------------------------------------------------------------------------------------------

/** The data directories by their index. */
enum Directory : uint32_t {
    kExportDirectory = 0,
    kImportDirectory = 1,
    kResourceDirectory = 2,
    kCertificateDirectory = 4,
    kRelocationDirectory = 5,
    kDebugDirectory = 6,
    kTlsDirectory = 9,
    kImportAddressDirectory = 12,
    kClrDirectory = 14,
};

inline constexpr uint32_t kDirectoryCount = 16;
inline constexpr uint32_t kDirectorySize = 8; // VirtualAddress and Size

/** The size of an optional header with all its directories. */
constexpr uint32_t WholeOptionalHeaderSize(bool is_pe32_plus) {
    return OptionalFieldOffset(optional_header::kDirectories, is_pe32_plus) + kDirectoryCount * kDirectorySize;
}

// ---- Sections ------------------------------------------------------------------------------------------------------

/** Characteristics of a section. */
namespace section_flag {

inline constexpr uint32_t kCode = 0x00000020;
inline constexpr uint32_t kInitializedData = 0x00000040;
inline constexpr uint32_t kUninitializedData = 0x00000080;
inline constexpr uint32_t kDiscardable = 0x02000000;
inline constexpr uint32_t kNotPaged = 0x08000000;
inline constexpr uint32_t kShared = 0x10000000;
inline constexpr uint32_t kExecute = 0x20000000;
inline constexpr uint32_t kRead = 0x40000000;
inline constexpr uint32_t kWrite = 0x80000000;

} // namespace section_flag

// ---- Imports and exports -------------------------------------------------------------------------------------------

namespace import_descriptor {

inline constexpr uint32_t kSize = 20;
inline constexpr uint32_t kFieldCount = 5; // of 4 bytes

/** Its fields, each of 4 bytes, by their index. */
enum Field : uint32_t { kOriginalFirstThunk = 0, kTimeDateStamp = 1, kForwarderChain = 2, kName = 3, kFirstThunk = 4 };

} // namespace import_descriptor

inline constexpr uint32_t kHintSize = 2;              // before an imported function's name
inline constexpr uint32_t kThunkRvaMask = 0x7FFFFFFF; // of a thunk that imports by name
inline constexpr uint32_t kThunkOrdinalMask = 0xFFFF;

/** The size of a thunk; its highest bit says that it imports by ordinal. */
constexpr uint8_t ThunkSize(bool is_pe32_plus) {
    return is_pe32_plus ? 8 : 4;
}

namespace export_directory {

inline constexpr uint32_t kSize = 40;

/** Its fields, each counted as 4 bytes, by their index. */
enum Field : uint32_t {
    kName = 3,
    kNumberOfFunctions = 5,
    kNumberOfNames = 6,
    kAddressOfFunctions = 7,
    kAddressOfNames = 8,
    kAddressOfNameOrdinals = 9,
    kFieldCount = 10,
};

} // namespace export_directory

// ---- Resources -----------------------------------------------------------------------------------------------------

namespace resource_directory {

inline constexpr uint32_t kHeaderSize = 16;
inline constexpr uint32_t kNumberOfNamedEntries = 12; // 2 bytes, as the number of the others after it
inline constexpr uint32_t kNumberOfIdEntries = 14;
inline constexpr uint32_t kEntrySize = 8;
inline constexpr uint32_t kDataEntrySize = 16;
inline constexpr uint32_t kFlag = 0x80000000; // of an entry: a name and not a number, a directory and not a leaf

} // namespace resource_directory

/** The resource types of Windows by their number. */
namespace resource_type {

inline constexpr uint16_t kIcon = 3;
inline constexpr uint16_t kString = 6;
inline constexpr uint16_t kRcData = 10;
inline constexpr uint16_t kMessageTable = 11;
inline constexpr uint16_t kGroupIcon = 14;
inline constexpr uint16_t kVersion = 16;
inline constexpr uint16_t kManifest = 24;

} // namespace resource_type

inline constexpr uint32_t kStringsOfBlock = 16; // strings in one string-table resource

/** The version resource: VS_VERSIONINFO with its VS_FIXEDFILEINFO, and blocks of strings. */
namespace version_resource {

inline constexpr uint32_t kBlockHeaderSize = 6; // wLength, wValueLength, wType
inline constexpr uint32_t kFixedInfoSize = 52;
inline constexpr uint32_t kFixedInfoSignature = 0xFEEF04BD;
inline constexpr uint32_t kFileVersion = 8; // offsets in the fixed part: dwFileVersionMS and LS
inline constexpr uint32_t kProductVersion = 16;
inline constexpr char16_t kStringFileInfo[] = u"StringFileInfo";

} // namespace version_resource

// ---- Other directories ---------------------------------------------------------------------------------------------

inline constexpr uint32_t kClrHeaderSize = 72;
inline constexpr uint32_t kClrFlagsOffset = 16;
inline constexpr uint32_t kTlsDirectorySize = 24; // of a 32-bit image

} // namespace tavrik::pe

#endif
