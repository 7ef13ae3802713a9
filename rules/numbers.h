/* Numbers in rules that code gives a meaning of its own; names.h has the names of all of them. */
#ifndef TAVRIK_RULES_NUMBERS_H
#define TAVRIK_RULES_NUMBERS_H

#include <cstdint>

namespace tavrik::rules {

/** HeaderCondition::field. A table's number is that of its VirtualAddress; its Size comes next. */
namespace header_field {

enum : uint16_t {
    kDosMagic = 0,
    kLfanew = 30,
    kMachine = 31,
    kNumberOfSections = 32,
    kTimeDateStamp = 33,
    kSizeOfOptionalHeader = 36,
    kCharacteristics = 37,
    kMagic = 38,
    kSizeOfCode = 41,
    kSizeOfInitializedData = 42,
    kAddressOfEntryPoint = 44,
    kBaseOfCode = 45,
    kBaseOfData = 46,
    kImageBase = 47,
    kSizeOfImage = 57,
    kSizeOfHeaders = 58,
    kCheckSum = 59,
    kSubsystem = 60,
    kDllCharacteristics = 61,
    kSizeOfStackReserve = 62,
    kLoaderFlags = 66,
    kNumberOfRvaAndSizes = 67,
    kExportTable = 68,
    kImportTable = 70,
    kResourceTable = 72,
    kBaseRelocationTable = 78,
    kTlsTable = 86,
    kClrRuntimeHeader = 96,
    // Derived values.
    kFileSize = 100,
    kOverlayOffset,
    kOverlaySize,
    kEntryPointOffset,
    kEntryPointSection,
    kEntryPointDelta,
    kEntryBytes0,
    kEntryBytes4,
    kRichOffset,
    kRichKey,
    kRichCount,
    kRichLastBuild,
    kImportModuleCount,
    kImportFunctionCount,
    kExportNameCount,
    kResourceCount,
    kImageBaseHigh,
    kClrFlags,
    kVbHeaderOffset,
    // Visual Basic structures.
    kVbProjectData = 125,
    kVbThreadCount = 129,
    kVbFormCount = 130,
    kVbFormTable = 133,
    kVbComRegisterData = 135,
    kVbProjectVersion = 140,
    kVbObjectTable = 141,
    kVbNativeCode = 148,
    kVbExternalTable = 149,
    kVbExternalCount = 150,
    kVbProject2 = 153,
    kVbTotalObjects = 162,
    kVbObjectArray = 165,
};

} // namespace header_field

/** SectionCondition::field. */
namespace section_field {

enum : uint8_t {
    kSizeOfRawData = 3,
    kCharacteristics = 9,
};

} // namespace section_field

/** SecondaryCondition::field. */
namespace object_field {

enum : uint8_t {
    kObjectInfo = 0,
    kObjectName = 6,
    kMethodCount = 7,
    kMethodNames = 8,
    kObjectType = 10,
};

} // namespace object_field

/** Resource types whose strings have named keys. */
inline constexpr uint32_t kVersionResource = 16;
inline constexpr uint32_t kManifestResource = 24;

/** ResourceString::key. */
namespace resource_key {

enum : uint32_t {
    kAny = 0,
    kAssemblyVersion = 14,
    // Of the fixed part of a version resource; the keys from 1 to below these are of its string tables.
    kFixedFileVersion = 28,
    kFixedProductVersion = 29,
};

} // namespace resource_key

/** The bits of attribute_b. */
namespace trait {

enum : uint32_t {
    kOverlay = 1,
    kEntryInLast = 2,
    kWritableEntry = 4,
    kExecutableLast = 8,
    kFewImports = 16,
    kVirtualSection = 32,
    kVisualBasic = 64,
    kNativeCode = 128,
    kAll = 0xFF,
};

} // namespace trait

/** Imported functions that still count as few. */
inline constexpr uint32_t kFewImports = 8;

} // namespace tavrik::rules

#endif
