#include "rules/constants.h"

#include <algorithm>

#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::rules {

namespace {

constexpr NamedNumber kMachines[] = {
    {pe::kMachineI386, "I386"},
    {pe::kMachineAmd64, "AMD64"},
    {0xAA64, "ARM64"},
    {0xA641, "ARM64EC"},
    {0xA64E, "ARM64X"},
    {0x1C0, "ARM"},
    {0x1C2, "THUMB"},
    {0x1C4, "ARMNT"},
    {0x200, "IA64"},
    {0xEBC, "EBC"},
    {0x162, "R3000"},
    {0x166, "R4000"},
    {0x168, "R10000"},
    {0x184, "ALPHA"},
    {0x1F0, "POWERPC"},
    {0x1A2, "SH3"},
    {0x1A6, "SH4"},
    {0x5032, "RISCV32"},
    {0x5064, "RISCV64"},
    {0x6264, "LOONGARCH64"},
    {0, "UNKNOWN"},
    {pe::kMachineI386, "X86"},
    {pe::kMachineAmd64, "X64"},
};

constexpr NamedNumber kFileFlags[] = {
    {pe::file_flag::kRelocsStripped, "RELOCS_STRIPPED"},
    {pe::file_flag::kExecutableImage, "EXECUTABLE_IMAGE"},
    {0x0004, "LINE_NUMS_STRIPPED"},
    {0x0008, "LOCAL_SYMS_STRIPPED"},
    {0x0010, "AGGRESSIVE_WS_TRIM"},
    {pe::file_flag::kLargeAddressAware, "LARGE_ADDRESS_AWARE"},
    {0x0080, "BYTES_REVERSED_LO"},
    {pe::file_flag::k32BitMachine, "MACHINE_32BIT"},
    {0x0200, "DEBUG_STRIPPED"},
    {0x0400, "REMOVABLE_RUN_FROM_SWAP"},
    {0x0800, "NET_RUN_FROM_SWAP"},
    {0x1000, "SYSTEM"},
    {pe::file_flag::kDll, "DLL"},
    {0x4000, "UP_SYSTEM_ONLY"},
    {0x8000, "BYTES_REVERSED_HI"},
    {pe::file_flag::k32BitMachine, "32BIT_MACHINE"}, // with the prefix alone: no word begins with a digit
};

constexpr NamedNumber kMagics[] = {
    {pe::kMagicPe32, "PE32"}, {pe::kMagicPe32Plus, "PE32PLUS"}, {pe::kMagicPe32Plus, "PE64"}, {0x107, "ROM"}};

constexpr NamedNumber kSubsystems[] = {
    {0, "UNKNOWN"},
    {1, "NATIVE"},
    {2, "WINDOWS_GUI"},
    {3, "WINDOWS_CUI"},
    {5, "OS2_CUI"},
    {7, "POSIX_CUI"},
    {8, "NATIVE_WINDOWS"},
    {9, "WINDOWS_CE_GUI"},
    {10, "EFI_APPLICATION"},
    {11, "EFI_BOOT_SERVICE_DRIVER"},
    {12, "EFI_RUNTIME_DRIVER"},
    {13, "EFI_ROM"},
    {14, "XBOX"},
    {16, "WINDOWS_BOOT_APPLICATION"},
    {2, "GUI"},
    {3, "CUI"},
    {3, "CONSOLE"},
};

constexpr NamedNumber kDllFlags[] = {
    {0x0020, "HIGH_ENTROPY_VA"}, {0x0040, "DYNAMIC_BASE"},          {0x0080, "FORCE_INTEGRITY"},
    {0x0100, "NX_COMPAT"},       {0x0200, "NO_ISOLATION"},          {0x0400, "NO_SEH"},
    {0x0800, "NO_BIND"},         {0x1000, "APPCONTAINER"},          {0x2000, "WDM_DRIVER"},
    {0x4000, "GUARD_CF"},        {0x8000, "TERMINAL_SERVER_AWARE"},
};

constexpr NamedNumber kSectionFlags[] = {
    {0x00000008, "TYPE_NO_PAD"},
    {pe::section_flag::kCode, "CNT_CODE"},
    {pe::section_flag::kInitializedData, "CNT_INITIALIZED_DATA"},
    {pe::section_flag::kUninitializedData, "CNT_UNINITIALIZED_DATA"},
    {0x00000200, "LNK_INFO"},
    {0x00000800, "LNK_REMOVE"},
    {0x00001000, "LNK_COMDAT"},
    {0x00008000, "GPREL"},
    {0x01000000, "LNK_NRELOC_OVFL"},
    {pe::section_flag::kDiscardable, "MEM_DISCARDABLE"},
    {0x04000000, "MEM_NOT_CACHED"},
    {pe::section_flag::kNotPaged, "MEM_NOT_PAGED"},
    {pe::section_flag::kShared, "MEM_SHARED"},
    {pe::section_flag::kExecute, "MEM_EXECUTE"},
    {pe::section_flag::kRead, "MEM_READ"},
    {pe::section_flag::kWrite, "MEM_WRITE"},
};

constexpr NamedNumber kDirectories[] = {
    {pe::kExportDirectory, "EXPORT"},
    {pe::kImportDirectory, "IMPORT"},
    {pe::kResourceDirectory, "RESOURCE"},
    {3, "EXCEPTION"},
    {pe::kCertificateDirectory, "SECURITY"},
    {pe::kRelocationDirectory, "BASERELOC"},
    {pe::kDebugDirectory, "DEBUG"},
    {7, "ARCHITECTURE"},
    {8, "GLOBALPTR"},
    {pe::kTlsDirectory, "TLS"},
    {10, "LOAD_CONFIG"},
    {11, "BOUND_IMPORT"},
    {pe::kImportAddressDirectory, "IAT"},
    {13, "DELAY_IMPORT"},
    {pe::kClrDirectory, "COM_DESCRIPTOR"},
};

struct FieldConstants {
    uint16_t field;
    ConstantGroup constants;
};

constexpr ConstantGroup kDirectoryGroup = {"IMAGE_DIRECTORY_ENTRY_", false, kDirectories};

constexpr FieldConstants kOfHeader[] = {
    {header_field::kMachine, {"IMAGE_FILE_MACHINE_", false, kMachines}},
    {header_field::kCharacteristics, {"IMAGE_FILE_", true, kFileFlags}},
    {header_field::kMagic, {"IMAGE_NT_OPTIONAL_HDR_", false, kMagics}},
    {header_field::kSubsystem, {"IMAGE_SUBSYSTEM_", false, kSubsystems}},
    {header_field::kDllCharacteristics, {"IMAGE_DLLCHARACTERISTICS_", true, kDllFlags}},
    {header_field::kNumberOfRvaAndSizes, kDirectoryGroup},
};

constexpr ConstantGroup kOfSections = {"IMAGE_SCN_", true, kSectionFlags};

} // namespace

const ConstantGroup *ConstantsOf(std::span<const Field> fields, uint32_t number) {
    if (fields.data() == SectionFields().data())
        return number == section_field::kCharacteristics ? &kOfSections : nullptr;
    if (fields.data() != HeaderFields().data())
        return nullptr;
    const auto found = std::ranges::find(kOfHeader, number, &FieldConstants::field);
    return found == std::end(kOfHeader) ? nullptr : &found->constants;
}

const ConstantGroup &Directories() {
    return kDirectoryGroup;
}

const NamedNumber *FindConstant(const ConstantGroup &group, std::string_view name) {
    if (name.starts_with(group.prefix))
        name.remove_prefix(group.prefix.size());
    const auto found = std::ranges::find(group.names, name, &NamedNumber::name);
    return found == group.names.end() ? nullptr : &*found;
}

} // namespace tavrik::rules
