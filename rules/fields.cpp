// The fields that conditions can ask for: their numbers, places and names.
#include <algorithm>
#include <iterator>

#include "rules/names.h"
#include "rules/numbers.h"

namespace tavrik::rules {

namespace {

constexpr Field kHeaderFields[] = {
    {0, Origin::DosHeader, 0, 2, Radix::Hex, "e_magic"},
    {1, Origin::DosHeader, 2, 2, Radix::Hex, "e_cblp"},
    {2, Origin::DosHeader, 4, 2, Radix::Hex, "e_cp"},
    {3, Origin::DosHeader, 6, 2, Radix::Hex, "e_crlc"},
    {4, Origin::DosHeader, 8, 2, Radix::Hex, "e_cparhdr"},
    {5, Origin::DosHeader, 0xA, 2, Radix::Hex, "e_minalloc"},
    {6, Origin::DosHeader, 0xC, 2, Radix::Hex, "e_maxalloc"},
    {7, Origin::DosHeader, 0xE, 2, Radix::Hex, "e_ss"},
    {8, Origin::DosHeader, 0x10, 2, Radix::Hex, "e_sp"},
    {9, Origin::DosHeader, 0x12, 2, Radix::Hex, "e_csum"},
    {10, Origin::DosHeader, 0x14, 2, Radix::Hex, "e_ip"},
    {11, Origin::DosHeader, 0x16, 2, Radix::Hex, "e_cs"},
    {12, Origin::DosHeader, 0x18, 2, Radix::Hex, "e_lfarlc"},
    {13, Origin::DosHeader, 0x1A, 2, Radix::Hex, "e_ovno"},
    {14, Origin::DosHeader, 0x1C, 2, Radix::Hex, "e_res[0]"},
    {15, Origin::DosHeader, 0x1E, 2, Radix::Hex, "e_res[1]"},
    {16, Origin::DosHeader, 0x20, 2, Radix::Hex, "e_res[2]"},
    {17, Origin::DosHeader, 0x22, 2, Radix::Hex, "e_res[3]"},
    {18, Origin::DosHeader, 0x24, 2, Radix::Hex, "e_oemid"},
    {19, Origin::DosHeader, 0x26, 2, Radix::Hex, "e_oeminfo"},
    {20, Origin::DosHeader, 0x28, 2, Radix::Hex, "e_res2[0]"},
    {21, Origin::DosHeader, 0x2A, 2, Radix::Hex, "e_res2[1]"},
    {22, Origin::DosHeader, 0x2C, 2, Radix::Hex, "e_res2[2]"},
    {23, Origin::DosHeader, 0x2E, 2, Radix::Hex, "e_res2[3]"},
    {24, Origin::DosHeader, 0x30, 2, Radix::Hex, "e_res2[4]"},
    {25, Origin::DosHeader, 0x32, 2, Radix::Hex, "e_res2[5]"},
    {26, Origin::DosHeader, 0x34, 2, Radix::Hex, "e_res2[6]"},
    {27, Origin::DosHeader, 0x36, 2, Radix::Hex, "e_res2[7]"},
    {28, Origin::DosHeader, 0x38, 2, Radix::Hex, "e_res2[8]"},
    {29, Origin::DosHeader, 0x3A, 2, Radix::Hex, "e_res2[9]"},
    {30, Origin::DosHeader, 0x3C, 4, Radix::Hex, "e_lfanew"},
    {31, Origin::FileHeader, 0, 2, Radix::Hex, "Machine"},
    {32, Origin::FileHeader, 2, 2, Radix::Decimal, "NumberOfSections"},
    {33, Origin::FileHeader, 4, 4, Radix::Hex, "TimeDateStamp"},
    {34, Origin::FileHeader, 8, 4, Radix::Hex, "PointerToSymbolTable"},
    {35, Origin::FileHeader, 0xC, 4, Radix::Decimal, "NumberOfSymbols"},
    {36, Origin::FileHeader, 0x10, 2, Radix::Hex, "SizeOfOptionalHeader"},
    {37, Origin::FileHeader, 0x12, 2, Radix::Hex, "Characteristics"},
    {38, Origin::OptionalHeader, 0, 2, Radix::Hex, "Magic"},
    {39, Origin::OptionalHeader, 2, 1, Radix::Decimal, "MajorLinkerVersion"},
    {40, Origin::OptionalHeader, 3, 1, Radix::Decimal, "MinorLinkerVersion"},
    {41, Origin::OptionalHeader, 4, 4, Radix::Hex, "SizeOfCode"},
    {42, Origin::OptionalHeader, 8, 4, Radix::Hex, "SizeOfInitializedData"},
    {43, Origin::OptionalHeader, 0xC, 4, Radix::Hex, "SizeOfUninitializedData"},
    {44, Origin::OptionalHeader, 0x10, 4, Radix::Hex, "AddressOfEntryPoint"},
    {45, Origin::OptionalHeader, 0x14, 4, Radix::Hex, "BaseOfCode"},
    {46, Origin::OptionalHeader, 0x18, 4, Radix::Hex, "BaseOfData"},
    {47, Origin::OptionalHeader, 0x1C, 4, Radix::Hex, "ImageBase"},
    {48, Origin::OptionalHeader, 0x20, 4, Radix::Hex, "SectionAlignment"},
    {49, Origin::OptionalHeader, 0x24, 4, Radix::Hex, "FileAlignment"},
    {50, Origin::OptionalHeader, 0x28, 2, Radix::Decimal, "MajorOperatingSystemVersion"},
    {51, Origin::OptionalHeader, 0x2A, 2, Radix::Decimal, "MinorOperatingSystemVersion"},
    {52, Origin::OptionalHeader, 0x2C, 2, Radix::Decimal, "MajorImageVersion"},
    {53, Origin::OptionalHeader, 0x2E, 2, Radix::Decimal, "MinorImageVersion"},
    {54, Origin::OptionalHeader, 0x30, 2, Radix::Decimal, "MajorSubsystemVersion"},
    {55, Origin::OptionalHeader, 0x32, 2, Radix::Decimal, "MinorSubsystemVersion"},
    {56, Origin::OptionalHeader, 0x34, 4, Radix::Hex, "Win32VersionValue"},
    {57, Origin::OptionalHeader, 0x38, 4, Radix::Hex, "SizeOfImage"},
    {58, Origin::OptionalHeader, 0x3C, 4, Radix::Hex, "SizeOfHeaders"},
    {59, Origin::OptionalHeader, 0x40, 4, Radix::Hex, "CheckSum"},
    {60, Origin::OptionalHeader, 0x44, 2, Radix::Decimal, "Subsystem"},
    {61, Origin::OptionalHeader, 0x46, 2, Radix::Hex, "DllCharacteristics"},
    {62, Origin::OptionalHeader, 0x48, 4, Radix::Hex, "SizeOfStackReserve"},
    {63, Origin::OptionalHeader, 0x4C, 4, Radix::Hex, "SizeOfStackCommit"},
    {64, Origin::OptionalHeader, 0x50, 4, Radix::Hex, "SizeOfHeapReserve"},
    {65, Origin::OptionalHeader, 0x54, 4, Radix::Hex, "SizeOfHeapCommit"},
    {66, Origin::OptionalHeader, 0x58, 4, Radix::Hex, "LoaderFlags"},
    {67, Origin::OptionalHeader, 0x5C, 4, Radix::Decimal, "NumberOfRvaAndSizes"},
    {68, Origin::OptionalHeader, 0x60, 4, Radix::Hex, "ExportTable.VirtualAddress"},
    {69, Origin::OptionalHeader, 0x64, 4, Radix::Hex, "ExportTable.Size"},
    {70, Origin::OptionalHeader, 0x68, 4, Radix::Hex, "ImportTable.VirtualAddress"},
    {71, Origin::OptionalHeader, 0x6C, 4, Radix::Hex, "ImportTable.Size"},
    {72, Origin::OptionalHeader, 0x70, 4, Radix::Hex, "ResourceTable.VirtualAddress"},
    {73, Origin::OptionalHeader, 0x74, 4, Radix::Hex, "ResourceTable.Size"},
    {74, Origin::OptionalHeader, 0x78, 4, Radix::Hex, "ExceptionTable.VirtualAddress"},
    {75, Origin::OptionalHeader, 0x7C, 4, Radix::Hex, "ExceptionTable.Size"},
    {76, Origin::OptionalHeader, 0x80, 4, Radix::Hex, "CertificateTable.VirtualAddress"},
    {77, Origin::OptionalHeader, 0x84, 4, Radix::Hex, "CertificateTable.Size"},
    {78, Origin::OptionalHeader, 0x88, 4, Radix::Hex, "BaseRelocationTable.VirtualAddress"},
    {79, Origin::OptionalHeader, 0x8C, 4, Radix::Hex, "BaseRelocationTable.Size"},
    {80, Origin::OptionalHeader, 0x90, 4, Radix::Hex, "Debug.VirtualAddress"},
    {81, Origin::OptionalHeader, 0x94, 4, Radix::Hex, "Debug.Size"},
    {82, Origin::OptionalHeader, 0x98, 4, Radix::Hex, "Architecture.VirtualAddress"},
    {83, Origin::OptionalHeader, 0x9C, 4, Radix::Hex, "Architecture.Size"},
    {84, Origin::OptionalHeader, 0xA0, 4, Radix::Hex, "GlobalPtr.VirtualAddress"},
    {85, Origin::OptionalHeader, 0xA4, 4, Radix::Hex, "GlobalPtr.Size"},
    {86, Origin::OptionalHeader, 0xA8, 4, Radix::Hex, "TLSTable.VirtualAddress"},
    {87, Origin::OptionalHeader, 0xAC, 4, Radix::Hex, "TLSTable.Size"},
    {88, Origin::OptionalHeader, 0xB0, 4, Radix::Hex, "LoadConfigTable.VirtualAddress"},
    {89, Origin::OptionalHeader, 0xB4, 4, Radix::Hex, "LoadConfigTable.Size"},
    {90, Origin::OptionalHeader, 0xB8, 4, Radix::Hex, "BoundImport.VirtualAddress"},
    {91, Origin::OptionalHeader, 0xBC, 4, Radix::Hex, "BoundImport.Size"},
    {92, Origin::OptionalHeader, 0xC0, 4, Radix::Hex, "IAT.VirtualAddress"},
    {93, Origin::OptionalHeader, 0xC4, 4, Radix::Hex, "IAT.Size"},
    {94, Origin::OptionalHeader, 0xC8, 4, Radix::Hex, "DelayImportDescriptor.VirtualAddress"},
    {95, Origin::OptionalHeader, 0xCC, 4, Radix::Hex, "DelayImportDescriptor.Size"},
    {96, Origin::OptionalHeader, 0xD0, 4, Radix::Hex, "CLRRuntimeHeader.VirtualAddress"},
    {97, Origin::OptionalHeader, 0xD4, 4, Radix::Hex, "CLRRuntimeHeader.Size"},
    {98, Origin::OptionalHeader, 0xD8, 4, Radix::Hex, "ReservedDirectory.VirtualAddress"},
    {99, Origin::OptionalHeader, 0xDC, 4, Radix::Hex, "ReservedDirectory.Size"},
    {100, Origin::Derived, 0, 4, Radix::Decimal, "FileSize"},
    {101, Origin::Derived, 0, 4, Radix::Hex, "OverlayOffset"},
    {102, Origin::Derived, 0, 4, Radix::Decimal, "OverlaySize"},
    {103, Origin::Derived, 0, 4, Radix::Hex, "EntryPointOffset"},
    {104, Origin::Derived, 0, 4, Radix::Decimal, "EntryPointSection"},
    {105, Origin::Derived, 0, 4, Radix::Hex, "EntryPointDelta"},
    {106, Origin::Derived, 0, 4, Radix::Hex, "EntryBytes[0]"},
    {107, Origin::Derived, 0, 4, Radix::Hex, "EntryBytes[4]"},
    {108, Origin::Derived, 0, 4, Radix::Hex, "Rich.Offset"},
    {109, Origin::Derived, 0, 4, Radix::Hex, "Rich.Key"},
    {110, Origin::Derived, 0, 4, Radix::Decimal, "Rich.Count"},
    {111, Origin::Derived, 0, 4, Radix::Hex, "Rich.LastBuild"},
    {112, Origin::Derived, 0, 4, Radix::Decimal, "ImportModuleCount"},
    {113, Origin::Derived, 0, 4, Radix::Decimal, "ImportFunctionCount"},
    {114, Origin::Derived, 0, 4, Radix::Decimal, "ExportNameCount"},
    {115, Origin::Derived, 0, 4, Radix::Decimal, "ResourceCount"},
    {116, Origin::Derived, 0, 4, Radix::Hex, "ImageBaseHigh"},
    {117, Origin::Derived, 0, 4, Radix::Hex, "CLRRuntimeHeader.Flags"},
    {118, Origin::Derived, 0, 4, Radix::Hex, "VB.HeaderOffset"},
    {119, Origin::VbHeader, 0, 4, Radix::Hex, "VB.Signature"},
    {120, Origin::VbHeader, 4, 2, Radix::Hex, "VB.RuntimeBuild"},
    {121, Origin::VbHeader, 0x22, 2, Radix::Hex, "VB.RuntimeRevision"},
    {122, Origin::VbHeader, 0x24, 4, Radix::Hex, "VB.LCID"},
    {123, Origin::VbHeader, 0x28, 4, Radix::Hex, "VB.SecondLCID"},
    {124, Origin::VbHeader, 0x2C, 4, Radix::Hex, "VB.SubMain"},
    {125, Origin::VbHeader, 0x30, 4, Radix::Hex, "VB.ProjectData"},
    {126, Origin::VbHeader, 0x34, 4, Radix::Hex, "VB.IntrinsicControls"},
    {127, Origin::VbHeader, 0x38, 4, Radix::Hex, "VB.IntrinsicControls2"},
    {128, Origin::VbHeader, 0x3C, 4, Radix::Hex, "VB.ThreadFlags"},
    {129, Origin::VbHeader, 0x40, 4, Radix::Decimal, "VB.ThreadCount"},
    {130, Origin::VbHeader, 0x44, 2, Radix::Decimal, "VB.FormCount"},
    {131, Origin::VbHeader, 0x46, 2, Radix::Decimal, "VB.ExternalCount"},
    {132, Origin::VbHeader, 0x48, 4, Radix::Decimal, "VB.ThunkCount"},
    {133, Origin::VbHeader, 0x4C, 4, Radix::Hex, "VB.FormTable"},
    {134, Origin::VbHeader, 0x50, 4, Radix::Hex, "VB.ExternalTable"},
    {135, Origin::VbHeader, 0x54, 4, Radix::Hex, "VB.ComRegisterData"},
    {136, Origin::VbHeader, 0x58, 4, Radix::Hex, "VB.ProjectDescription"},
    {137, Origin::VbHeader, 0x5C, 4, Radix::Hex, "VB.ProjectExeName"},
    {138, Origin::VbHeader, 0x60, 4, Radix::Hex, "VB.ProjectHelpFile"},
    {139, Origin::VbHeader, 0x64, 4, Radix::Hex, "VB.ProjectName"},
    {140, Origin::VbProject, 0, 4, Radix::Decimal, "VB.Project.Version"},
    {141, Origin::VbProject, 4, 4, Radix::Hex, "VB.Project.ObjectTable"},
    {142, Origin::VbProject, 8, 4, Radix::Hex, "VB.Project.Null"},
    {143, Origin::VbProject, 0xC, 4, Radix::Hex, "VB.Project.CodeStart"},
    {144, Origin::VbProject, 0x10, 4, Radix::Hex, "VB.Project.CodeEnd"},
    {145, Origin::VbProject, 0x14, 4, Radix::Hex, "VB.Project.DataSize"},
    {146, Origin::VbProject, 0x18, 4, Radix::Hex, "VB.Project.ThreadSpace"},
    {147, Origin::VbProject, 0x1C, 4, Radix::Hex, "VB.Project.ExceptionHandler"},
    {148, Origin::VbProject, 0x20, 4, Radix::Hex, "VB.Project.NativeCode"},
    {149, Origin::VbProject, 0x234, 4, Radix::Hex, "VB.Project.ExternalTable"},
    {150, Origin::VbProject, 0x238, 4, Radix::Decimal, "VB.Project.ExternalCount"},
    {151, Origin::VbObjectTable, 0, 4, Radix::Hex, "VB.ObjectTable.HeapLink"},
    {152, Origin::VbObjectTable, 4, 4, Radix::Hex, "VB.ObjectTable.ExecProject"},
    {153, Origin::VbObjectTable, 8, 4, Radix::Hex, "VB.ObjectTable.Project2"},
    {154, Origin::VbObjectTable, 0xC, 4, Radix::Hex, "VB.ObjectTable.Reserved"},
    {155, Origin::VbObjectTable, 0x10, 4, Radix::Hex, "VB.ObjectTable.Null"},
    {156, Origin::VbObjectTable, 0x14, 4, Radix::Hex, "VB.ObjectTable.ProjectObject"},
    {157, Origin::VbObjectTable, 0x18, 4, Radix::Hex, "VB.ObjectTable.Uuid[0]"},
    {158, Origin::VbObjectTable, 0x1C, 4, Radix::Hex, "VB.ObjectTable.Uuid[1]"},
    {159, Origin::VbObjectTable, 0x20, 4, Radix::Hex, "VB.ObjectTable.Uuid[2]"},
    {160, Origin::VbObjectTable, 0x24, 4, Radix::Hex, "VB.ObjectTable.Uuid[3]"},
    {161, Origin::VbObjectTable, 0x28, 2, Radix::Hex, "VB.ObjectTable.CompileState"},
    {162, Origin::VbObjectTable, 0x2A, 2, Radix::Decimal, "VB.ObjectTable.TotalObjects"},
    {163, Origin::VbObjectTable, 0x2C, 2, Radix::Decimal, "VB.ObjectTable.CompiledObjects"},
    {164, Origin::VbObjectTable, 0x2E, 2, Radix::Decimal, "VB.ObjectTable.ObjectsInUse"},
    {165, Origin::VbObjectTable, 0x30, 4, Radix::Hex, "VB.ObjectTable.ObjectArray"},
    {166, Origin::VbObjectTable, 0x34, 4, Radix::Hex, "VB.ObjectTable.IdeFlag"},
    {167, Origin::VbObjectTable, 0x38, 4, Radix::Hex, "VB.ObjectTable.IdeData"},
    {168, Origin::VbObjectTable, 0x3C, 4, Radix::Hex, "VB.ObjectTable.IdeData2"},
    {169, Origin::VbObjectTable, 0x40, 4, Radix::Hex, "VB.ObjectTable.ProjectName"},
    {170, Origin::VbObjectTable, 0x44, 4, Radix::Hex, "VB.ObjectTable.LCID"},
    {171, Origin::VbObjectTable, 0x48, 4, Radix::Hex, "VB.ObjectTable.SecondLCID"},
    {172, Origin::VbObjectTable, 0x4C, 4, Radix::Hex, "VB.ObjectTable.IdeData3"},
    {173, Origin::VbObjectTable, 0x50, 4, Radix::Hex, "VB.ObjectTable.Identifier"},
    {174, Origin::VbComData, 0, 4, Radix::Hex, "VB.Com.RegInfo"},
    {175, Origin::VbComData, 4, 4, Radix::Hex, "VB.Com.ProjectName"},
    {176, Origin::VbComData, 8, 4, Radix::Hex, "VB.Com.HelpDirectory"},
    {177, Origin::VbComData, 0xC, 4, Radix::Hex, "VB.Com.ProjectDescription"},
    {178, Origin::VbComData, 0x10, 4, Radix::Hex, "VB.Com.Uuid[0]"},
    {179, Origin::VbComData, 0x14, 4, Radix::Hex, "VB.Com.Uuid[1]"},
    {180, Origin::VbComData, 0x18, 4, Radix::Hex, "VB.Com.Uuid[2]"},
    {181, Origin::VbComData, 0x1C, 4, Radix::Hex, "VB.Com.Uuid[3]"},
    {182, Origin::VbComData, 0x20, 4, Radix::Hex, "VB.Com.TypeLibLCID"},
    {183, Origin::VbComData, 0x24, 2, Radix::Hex, "VB.Com.Unknown"},
    {184, Origin::VbComData, 0x26, 2, Radix::Decimal, "VB.Com.TypeLibMajor"},
    {185, Origin::VbComData, 0x28, 2, Radix::Decimal, "VB.Com.TypeLibMinor"},
    {186, Origin::VbProject2, 0, 4, Radix::Hex, "VB.Project2.HeapLink"},
    {187, Origin::VbProject2, 4, 4, Radix::Hex, "VB.Project2.ObjectTable"},
    {188, Origin::VbProject2, 8, 4, Radix::Hex, "VB.Project2.Reserved"},
    {189, Origin::VbProject2, 0xC, 4, Radix::Hex, "VB.Project2.Unused"},
    {190, Origin::VbProject2, 0x10, 4, Radix::Hex, "VB.Project2.ObjectList"},
    {191, Origin::VbProject2, 0x14, 4, Radix::Hex, "VB.Project2.Unused2"},
    {192, Origin::VbProject2, 0x18, 4, Radix::Hex, "VB.Project2.ProjectDescription"},
    {193, Origin::VbProject2, 0x1C, 4, Radix::Hex, "VB.Project2.ProjectHelpFile"},
    {194, Origin::VbProject2, 0x20, 4, Radix::Hex, "VB.Project2.Reserved2"},
    {195, Origin::VbProject2, 0x24, 4, Radix::Hex, "VB.Project2.HelpContextId"},
    {196, Origin::VbForm, 0, 4, Radix::Hex, "VB.Form.StructureSize"},
    {197, Origin::VbForm, 4, 4, Radix::Hex, "VB.Form.ObjectUuid[0]"},
    {198, Origin::VbForm, 8, 4, Radix::Hex, "VB.Form.ObjectUuid[1]"},
    {199, Origin::VbForm, 0xC, 4, Radix::Hex, "VB.Form.ObjectUuid[2]"},
    {200, Origin::VbForm, 0x10, 4, Radix::Hex, "VB.Form.ObjectUuid[3]"},
    {201, Origin::VbForm, 0x14, 4, Radix::Hex, "VB.Form.Unknown[0]"},
    {202, Origin::VbForm, 0x18, 4, Radix::Hex, "VB.Form.Unknown[1]"},
    {203, Origin::VbForm, 0x1C, 4, Radix::Hex, "VB.Form.Unknown[2]"},
    {204, Origin::VbForm, 0x20, 4, Radix::Hex, "VB.Form.Unknown[3]"},
    {205, Origin::VbForm, 0x24, 4, Radix::Hex, "VB.Form.ObjectId"},
    {206, Origin::VbForm, 0x28, 4, Radix::Hex, "VB.Form.Unknown[4]"},
    {207, Origin::VbForm, 0x2C, 4, Radix::Hex, "VB.Form.OleMisc"},
    {208, Origin::VbForm, 0x30, 4, Radix::Hex, "VB.Form.Uuid[0]"},
    {209, Origin::VbForm, 0x34, 4, Radix::Hex, "VB.Form.Uuid[1]"},
    {210, Origin::VbForm, 0x38, 4, Radix::Hex, "VB.Form.Uuid[2]"},
    {211, Origin::VbForm, 0x3C, 4, Radix::Hex, "VB.Form.Uuid[3]"},
    {212, Origin::VbForm, 0x40, 4, Radix::Hex, "VB.Form.Unknown[5]"},
    {213, Origin::VbForm, 0x44, 4, Radix::Hex, "VB.Form.Unknown[6]"},
    {214, Origin::VbForm, 0x48, 4, Radix::Hex, "VB.Form.FormPointer"},
    {215, Origin::VbForm, 0x4C, 4, Radix::Hex, "VB.Form.Unknown[7]"},
    {216, Origin::VbExternals, 0, 4, Radix::Hex, "VB.External[0].Kind"},
    {217, Origin::VbExternals, 4, 4, Radix::Hex, "VB.External[0].Descriptor"},
    {218, Origin::VbExternals, 8, 4, Radix::Hex, "VB.External[1].Kind"},
    {219, Origin::VbExternals, 0xC, 4, Radix::Hex, "VB.External[1].Descriptor"},
    {220, Origin::VbExternals, 0x10, 4, Radix::Hex, "VB.External[2].Kind"},
    {221, Origin::VbExternals, 0x14, 4, Radix::Hex, "VB.External[2].Descriptor"},
    {222, Origin::VbExternals, 0x18, 4, Radix::Hex, "VB.External[3].Kind"},
    {223, Origin::VbExternals, 0x1C, 4, Radix::Hex, "VB.External[3].Descriptor"},
    {224, Origin::VbExternals, 0x20, 4, Radix::Hex, "VB.External[4].Kind"},
    {225, Origin::VbExternals, 0x24, 4, Radix::Hex, "VB.External[4].Descriptor"},
    {226, Origin::VbExternals, 0x28, 4, Radix::Hex, "VB.External[5].Kind"},
    {227, Origin::VbExternals, 0x2C, 4, Radix::Hex, "VB.External[5].Descriptor"},
    {228, Origin::VbExternals, 0x30, 4, Radix::Hex, "VB.External[6].Kind"},
    {229, Origin::VbExternals, 0x34, 4, Radix::Hex, "VB.External[6].Descriptor"},
    {230, Origin::VbExternals, 0x38, 4, Radix::Hex, "VB.External[7].Kind"},
    {231, Origin::VbExternals, 0x3C, 4, Radix::Hex, "VB.External[7].Descriptor"},
    {232, Origin::VbExternals, 0x40, 4, Radix::Hex, "VB.External[8].Kind"},
    {233, Origin::VbExternals, 0x44, 4, Radix::Hex, "VB.External[8].Descriptor"},
    {234, Origin::VbExternals, 0x48, 4, Radix::Hex, "VB.External[9].Kind"},
    {235, Origin::VbExternals, 0x4C, 4, Radix::Hex, "VB.External[9].Descriptor"},
    {236, Origin::VbExternals, 0x50, 4, Radix::Hex, "VB.External[10].Kind"},
    {237, Origin::VbExternals, 0x54, 4, Radix::Hex, "VB.External[10].Descriptor"},
    {238, Origin::VbExternals, 0x58, 4, Radix::Hex, "VB.External[11].Kind"},
    {239, Origin::VbExternals, 0x5C, 4, Radix::Hex, "VB.External[11].Descriptor"},
    {240, Origin::VbExternals, 0x60, 4, Radix::Hex, "VB.External[12].Kind"},
    {241, Origin::VbExternals, 0x64, 4, Radix::Hex, "VB.External[12].Descriptor"},
    {242, Origin::VbExternals, 0x68, 4, Radix::Hex, "VB.External[13].Kind"},
    {243, Origin::VbExternals, 0x6C, 4, Radix::Hex, "VB.External[13].Descriptor"},
    {244, Origin::VbExternals, 0x70, 4, Radix::Hex, "VB.External[14].Kind"},
    {245, Origin::VbExternals, 0x74, 4, Radix::Hex, "VB.External[14].Descriptor"},
    {246, Origin::VbExternals, 0x78, 4, Radix::Hex, "VB.External[15].Kind"},
    {247, Origin::VbExternals, 0x7C, 4, Radix::Hex, "VB.External[15].Descriptor"},
    {248, Origin::VbExternals, 0x80, 4, Radix::Hex, "VB.External[16].Kind"},
    {249, Origin::VbExternals, 0x84, 4, Radix::Hex, "VB.External[16].Descriptor"},
    {250, Origin::VbExternals, 0x88, 4, Radix::Hex, "VB.External[17].Kind"},
    {251, Origin::VbExternals, 0x8C, 4, Radix::Hex, "VB.External[17].Descriptor"},
    {252, Origin::VbExternals, 0x90, 4, Radix::Hex, "VB.External[18].Kind"},
    {253, Origin::VbExternals, 0x94, 4, Radix::Hex, "VB.External[18].Descriptor"},
    {254, Origin::VbExternals, 0x98, 4, Radix::Hex, "VB.External[19].Kind"},
    {255, Origin::VbExternals, 0x9C, 4, Radix::Hex, "VB.External[19].Descriptor"},
    {256, Origin::VbExternals, 0xA0, 4, Radix::Hex, "VB.External[20].Kind"},
    {257, Origin::VbExternals, 0xA4, 4, Radix::Hex, "VB.External[20].Descriptor"},
    {258, Origin::VbExternals, 0xA8, 4, Radix::Hex, "VB.External[21].Kind"},
    {259, Origin::VbExternals, 0xAC, 4, Radix::Hex, "VB.External[21].Descriptor"},
    {260, Origin::VbExternals, 0xB0, 4, Radix::Hex, "VB.External[22].Kind"},
    {261, Origin::VbExternals, 0xB4, 4, Radix::Hex, "VB.External[22].Descriptor"},
    {262, Origin::VbExternals, 0xB8, 4, Radix::Hex, "VB.External[23].Kind"},
    {263, Origin::VbExternals, 0xBC, 4, Radix::Hex, "VB.External[23].Descriptor"},
};

// The numbers in numbers.h are indices of the table.
static_assert(kHeaderFields[header_field::kLfanew].name == "e_lfanew");
static_assert(kHeaderFields[header_field::kNumberOfSections].name == "NumberOfSections");
static_assert(kHeaderFields[header_field::kTimeDateStamp].name == "TimeDateStamp");
static_assert(kHeaderFields[header_field::kSizeOfOptionalHeader].name == "SizeOfOptionalHeader");
static_assert(kHeaderFields[header_field::kCharacteristics].name == "Characteristics");
static_assert(kHeaderFields[header_field::kMagic].name == "Magic");
static_assert(kHeaderFields[header_field::kSizeOfInitializedData].name == "SizeOfInitializedData");
static_assert(kHeaderFields[header_field::kImageBase].name == "ImageBase");
static_assert(kHeaderFields[header_field::kSizeOfHeaders].name == "SizeOfHeaders");
static_assert(kHeaderFields[header_field::kCheckSum].name == "CheckSum");
static_assert(kHeaderFields[header_field::kSizeOfStackReserve].name == "SizeOfStackReserve");
static_assert(kHeaderFields[header_field::kNumberOfRvaAndSizes].name == "NumberOfRvaAndSizes");
static_assert(kHeaderFields[header_field::kTlsTable].name == "TLSTable.VirtualAddress");
static_assert(kHeaderFields[header_field::kClrRuntimeHeader].name == "CLRRuntimeHeader.VirtualAddress");
static_assert(kHeaderFields[header_field::kVbHeaderOffset].name == "VB.HeaderOffset");
static_assert(kHeaderFields[header_field::kVbProjectData].name == "VB.ProjectData");
static_assert(kHeaderFields[header_field::kVbFormCount].name == "VB.FormCount");
static_assert(kHeaderFields[header_field::kVbFormTable].name == "VB.FormTable");
static_assert(kHeaderFields[header_field::kVbComRegisterData].name == "VB.ComRegisterData");
static_assert(kHeaderFields[header_field::kVbProjectVersion].name == "VB.Project.Version");
static_assert(kHeaderFields[header_field::kVbObjectTable].name == "VB.Project.ObjectTable");
static_assert(kHeaderFields[header_field::kVbNativeCode].name == "VB.Project.NativeCode");
static_assert(kHeaderFields[header_field::kVbExternalTable].name == "VB.Project.ExternalTable");
static_assert(kHeaderFields[header_field::kVbExternalCount].name == "VB.Project.ExternalCount");
static_assert(kHeaderFields[header_field::kVbProject2].name == "VB.ObjectTable.Project2");
static_assert(kHeaderFields[header_field::kVbTotalObjects].name == "VB.ObjectTable.TotalObjects");
static_assert(kHeaderFields[header_field::kVbObjectArray].name == "VB.ObjectTable.ObjectArray");

constexpr Field kSectionFields[] = {
    {1, Origin::SectionHeader, 8, 4, Radix::Hex, "VirtualSize"},
    {2, Origin::SectionHeader, 0xC, 4, Radix::Hex, "VirtualAddress"},
    {3, Origin::SectionHeader, 0x10, 4, Radix::Hex, "SizeOfRawData"},
    {4, Origin::SectionHeader, 0x14, 4, Radix::Hex, "PointerToRawData"},
    {5, Origin::SectionHeader, 0x18, 4, Radix::Hex, "PointerToRelocations"},
    {6, Origin::SectionHeader, 0x1C, 4, Radix::Hex, "PointerToLinenumbers"},
    {7, Origin::SectionHeader, 0x20, 2, Radix::Decimal, "NumberOfRelocations"},
    {8, Origin::SectionHeader, 0x22, 2, Radix::Decimal, "NumberOfLinenumbers"},
    {9, Origin::SectionHeader, 0x24, 4, Radix::Hex, "Characteristics"},
};

static_assert(kSectionFields[section_field::kSizeOfRawData - 1].name == "SizeOfRawData");
static_assert(kSectionFields[section_field::kCharacteristics - 1].name == "Characteristics");

constexpr Field kImportTableFields[] = {
    {0, Origin::ImportDescriptor, 0, 4, Radix::Hex, "OriginalFirstThunk"},
    {1, Origin::ImportDescriptor, 4, 4, Radix::Hex, "TimeDateStamp"},
    {2, Origin::ImportDescriptor, 8, 4, Radix::Hex, "ForwarderChain"},
    {3, Origin::ImportDescriptor, 0xC, 4, Radix::Hex, "Name"},
    {4, Origin::ImportDescriptor, 0x10, 4, Radix::Hex, "FirstThunk"},
};

constexpr Field kObjectFields[] = {
    {0, Origin::VbObject, 0, 4, Radix::Hex, "ObjectInfo"},
    {1, Origin::VbObject, 4, 4, Radix::Hex, "Reserved"},
    {2, Origin::VbObject, 8, 4, Radix::Hex, "PublicBytes"},
    {3, Origin::VbObject, 0xC, 4, Radix::Hex, "StaticBytes"},
    {4, Origin::VbObject, 0x10, 4, Radix::Hex, "ModulePublic"},
    {5, Origin::VbObject, 0x14, 4, Radix::Hex, "ModuleStatic"},
    {6, Origin::VbObject, 0x18, 4, Radix::Hex, "ObjectName"},
    {7, Origin::VbObject, 0x1C, 4, Radix::Decimal, "MethodCount"},
    {8, Origin::VbObject, 0x20, 4, Radix::Hex, "MethodNames"},
    {9, Origin::VbObject, 0x24, 4, Radix::Hex, "StaticVars"},
    {10, Origin::VbObject, 0x28, 4, Radix::Hex, "ObjectType"},
    {11, Origin::VbObject, 0x2C, 4, Radix::Hex, "Null"},
    {12, Origin::VbObjectInfo, 0, 2, Radix::Decimal, "Info.RefCount"},
    {13, Origin::VbObjectInfo, 2, 2, Radix::Decimal, "Info.ObjectIndex"},
    {14, Origin::VbObjectInfo, 4, 4, Radix::Hex, "Info.ObjectTable"},
    {15, Origin::VbObjectInfo, 8, 4, Radix::Hex, "Info.IdeData"},
    {16, Origin::VbObjectInfo, 0xC, 4, Radix::Hex, "Info.PrivateObject"},
    {17, Origin::VbObjectInfo, 0x10, 4, Radix::Hex, "Info.Reserved"},
    {18, Origin::VbObjectInfo, 0x14, 4, Radix::Hex, "Info.Null"},
    {19, Origin::VbObjectInfo, 0x18, 4, Radix::Hex, "Info.Object"},
    {20, Origin::VbObjectInfo, 0x1C, 4, Radix::Hex, "Info.ProjectData"},
    {21, Origin::VbObjectInfo, 0x20, 2, Radix::Decimal, "Info.MethodCount"},
    {22, Origin::VbObjectInfo, 0x22, 2, Radix::Decimal, "Info.MethodCount2"},
    {23, Origin::VbObjectInfo, 0x24, 4, Radix::Hex, "Info.Methods"},
    {24, Origin::VbObjectInfo, 0x28, 2, Radix::Decimal, "Info.Constants"},
    {25, Origin::VbObjectInfo, 0x2A, 2, Radix::Decimal, "Info.MaxConstants"},
    {26, Origin::VbObjectInfo, 0x2C, 4, Radix::Hex, "Info.IdeData2"},
    {27, Origin::VbObjectInfo, 0x30, 4, Radix::Hex, "Info.IdeData3"},
    {28, Origin::VbObjectInfo, 0x34, 4, Radix::Hex, "Info.ConstantPool"},
    {29, Origin::VbObjectOptional, 0, 4, Radix::Decimal, "Optional.GuidCount"},
    {30, Origin::VbObjectOptional, 4, 4, Radix::Hex, "Optional.ObjectClsid"},
    {31, Origin::VbObjectOptional, 8, 4, Radix::Hex, "Optional.Null"},
    {32, Origin::VbObjectOptional, 0xC, 4, Radix::Hex, "Optional.GuidTypes"},
    {33, Origin::VbObjectOptional, 0x10, 4, Radix::Decimal, "Optional.GuidTypeCount"},
    {34, Origin::VbObjectOptional, 0x14, 4, Radix::Hex, "Optional.Controls2"},
    {35, Origin::VbObjectOptional, 0x18, 4, Radix::Hex, "Optional.Null2"},
    {36, Origin::VbObjectOptional, 0x1C, 4, Radix::Hex, "Optional.ObjectGuid2"},
    {37, Origin::VbObjectOptional, 0x20, 4, Radix::Decimal, "Optional.ControlCount"},
    {38, Origin::VbObjectOptional, 0x24, 4, Radix::Hex, "Optional.Controls"},
    {39, Origin::VbObjectOptional, 0x28, 2, Radix::Decimal, "Optional.EventCount"},
    {40, Origin::VbObjectOptional, 0x2A, 2, Radix::Decimal, "Optional.PCodeCount"},
    {41, Origin::VbObjectOptional, 0x2C, 2, Radix::Hex, "Optional.InitializeEvent"},
    {42, Origin::VbObjectOptional, 0x2E, 2, Radix::Hex, "Optional.TerminateEvent"},
    {43, Origin::VbObjectOptional, 0x30, 4, Radix::Hex, "Optional.EventLinks"},
};

static_assert(kObjectFields[object_field::kObjectInfo].name == "ObjectInfo");
static_assert(kObjectFields[object_field::kObjectName].name == "ObjectName");
static_assert(kObjectFields[object_field::kMethodCount].name == "MethodCount");
static_assert(kObjectFields[object_field::kMethodNames].name == "MethodNames");
static_assert(kObjectFields[object_field::kObjectType].name == "ObjectType");

// Lookups by number use it as an index.
template <std::size_t kCount>
constexpr bool HasNoGap(const Field (&fields)[kCount]) {
    for (std::size_t i = 0; i < kCount; ++i)
        if (fields[i].number != fields[0].number + i)
            return false;
    return true;
}

static_assert(HasNoGap(kHeaderFields) && std::size(kHeaderFields) == kHeaderFieldCount);
static_assert(HasNoGap(kSectionFields) && std::size(kSectionFields) == 9);
static_assert(HasNoGap(kImportTableFields) && std::size(kImportTableFields) == 5);
static_assert(HasNoGap(kObjectFields) && std::size(kObjectFields) == 44);

} // namespace

std::span<const Field> HeaderFields() {
    return kHeaderFields;
}

std::span<const Field> SectionFields() {
    return kSectionFields;
}

std::span<const Field> ImportTableFields() {
    return kImportTableFields;
}

std::span<const Field> ObjectFields() {
    return kObjectFields;
}

const Field *FindField(std::span<const Field> fields, uint32_t number) {
    const uint32_t first = fields.front().number;
    return number >= first && number - first < fields.size() ? &fields[number - first] : nullptr;
}

const Field *FindField(std::span<const Field> fields, std::string_view name) {
    const auto found = std::ranges::find(fields, name, &Field::name);
    return found != fields.end() ? &*found : nullptr;
}

} // namespace tavrik::rules
