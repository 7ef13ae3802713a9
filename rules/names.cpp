#include "rules/names.h"

#include <algorithm>
#include <iterator>

#include "rules/numbers.h"

namespace tavrik::rules {

namespace {

constexpr Field kHeaderFields[] = {
    {0, Origin::kDosHeader, 0, 2, Radix::kHex, "e_magic"},
    {1, Origin::kDosHeader, 2, 2, Radix::kHex, "e_cblp"},
    {2, Origin::kDosHeader, 4, 2, Radix::kHex, "e_cp"},
    {3, Origin::kDosHeader, 6, 2, Radix::kHex, "e_crlc"},
    {4, Origin::kDosHeader, 8, 2, Radix::kHex, "e_cparhdr"},
    {5, Origin::kDosHeader, 0xA, 2, Radix::kHex, "e_minalloc"},
    {6, Origin::kDosHeader, 0xC, 2, Radix::kHex, "e_maxalloc"},
    {7, Origin::kDosHeader, 0xE, 2, Radix::kHex, "e_ss"},
    {8, Origin::kDosHeader, 0x10, 2, Radix::kHex, "e_sp"},
    {9, Origin::kDosHeader, 0x12, 2, Radix::kHex, "e_csum"},
    {10, Origin::kDosHeader, 0x14, 2, Radix::kHex, "e_ip"},
    {11, Origin::kDosHeader, 0x16, 2, Radix::kHex, "e_cs"},
    {12, Origin::kDosHeader, 0x18, 2, Radix::kHex, "e_lfarlc"},
    {13, Origin::kDosHeader, 0x1A, 2, Radix::kHex, "e_ovno"},
    {14, Origin::kDosHeader, 0x1C, 2, Radix::kHex, "e_res[0]"},
    {15, Origin::kDosHeader, 0x1E, 2, Radix::kHex, "e_res[1]"},
    {16, Origin::kDosHeader, 0x20, 2, Radix::kHex, "e_res[2]"},
    {17, Origin::kDosHeader, 0x22, 2, Radix::kHex, "e_res[3]"},
    {18, Origin::kDosHeader, 0x24, 2, Radix::kHex, "e_oemid"},
    {19, Origin::kDosHeader, 0x26, 2, Radix::kHex, "e_oeminfo"},
    {20, Origin::kDosHeader, 0x28, 2, Radix::kHex, "e_res2[0]"},
    {21, Origin::kDosHeader, 0x2A, 2, Radix::kHex, "e_res2[1]"},
    {22, Origin::kDosHeader, 0x2C, 2, Radix::kHex, "e_res2[2]"},
    {23, Origin::kDosHeader, 0x2E, 2, Radix::kHex, "e_res2[3]"},
    {24, Origin::kDosHeader, 0x30, 2, Radix::kHex, "e_res2[4]"},
    {25, Origin::kDosHeader, 0x32, 2, Radix::kHex, "e_res2[5]"},
    {26, Origin::kDosHeader, 0x34, 2, Radix::kHex, "e_res2[6]"},
    {27, Origin::kDosHeader, 0x36, 2, Radix::kHex, "e_res2[7]"},
    {28, Origin::kDosHeader, 0x38, 2, Radix::kHex, "e_res2[8]"},
    {29, Origin::kDosHeader, 0x3A, 2, Radix::kHex, "e_res2[9]"},
    {30, Origin::kDosHeader, 0x3C, 4, Radix::kHex, "e_lfanew"},
    {31, Origin::kFileHeader, 0, 2, Radix::kHex, "Machine"},
    {32, Origin::kFileHeader, 2, 2, Radix::kDecimal, "NumberOfSections"},
    {33, Origin::kFileHeader, 4, 4, Radix::kHex, "TimeDateStamp"},
    {34, Origin::kFileHeader, 8, 4, Radix::kHex, "PointerToSymbolTable"},
    {35, Origin::kFileHeader, 0xC, 4, Radix::kDecimal, "NumberOfSymbols"},
    {36, Origin::kFileHeader, 0x10, 2, Radix::kHex, "SizeOfOptionalHeader"},
    {37, Origin::kFileHeader, 0x12, 2, Radix::kHex, "Characteristics"},
    {38, Origin::kOptionalHeader, 0, 2, Radix::kHex, "Magic"},
    {39, Origin::kOptionalHeader, 2, 1, Radix::kDecimal, "MajorLinkerVersion"},
    {40, Origin::kOptionalHeader, 3, 1, Radix::kDecimal, "MinorLinkerVersion"},
    {41, Origin::kOptionalHeader, 4, 4, Radix::kHex, "SizeOfCode"},
    {42, Origin::kOptionalHeader, 8, 4, Radix::kHex, "SizeOfInitializedData"},
    {43, Origin::kOptionalHeader, 0xC, 4, Radix::kHex, "SizeOfUninitializedData"},
    {44, Origin::kOptionalHeader, 0x10, 4, Radix::kHex, "AddressOfEntryPoint"},
    {45, Origin::kOptionalHeader, 0x14, 4, Radix::kHex, "BaseOfCode"},
    {46, Origin::kOptionalHeader, 0x18, 4, Radix::kHex, "BaseOfData"},
    {47, Origin::kOptionalHeader, 0x1C, 4, Radix::kHex, "ImageBase"},
    {48, Origin::kOptionalHeader, 0x20, 4, Radix::kHex, "SectionAlignment"},
    {49, Origin::kOptionalHeader, 0x24, 4, Radix::kHex, "FileAlignment"},
    {50, Origin::kOptionalHeader, 0x28, 2, Radix::kDecimal, "MajorOperatingSystemVersion"},
    {51, Origin::kOptionalHeader, 0x2A, 2, Radix::kDecimal, "MinorOperatingSystemVersion"},
    {52, Origin::kOptionalHeader, 0x2C, 2, Radix::kDecimal, "MajorImageVersion"},
    {53, Origin::kOptionalHeader, 0x2E, 2, Radix::kDecimal, "MinorImageVersion"},
    {54, Origin::kOptionalHeader, 0x30, 2, Radix::kDecimal, "MajorSubsystemVersion"},
    {55, Origin::kOptionalHeader, 0x32, 2, Radix::kDecimal, "MinorSubsystemVersion"},
    {56, Origin::kOptionalHeader, 0x34, 4, Radix::kHex, "Win32VersionValue"},
    {57, Origin::kOptionalHeader, 0x38, 4, Radix::kHex, "SizeOfImage"},
    {58, Origin::kOptionalHeader, 0x3C, 4, Radix::kHex, "SizeOfHeaders"},
    {59, Origin::kOptionalHeader, 0x40, 4, Radix::kHex, "CheckSum"},
    {60, Origin::kOptionalHeader, 0x44, 2, Radix::kDecimal, "Subsystem"},
    {61, Origin::kOptionalHeader, 0x46, 2, Radix::kHex, "DllCharacteristics"},
    {62, Origin::kOptionalHeader, 0x48, 4, Radix::kHex, "SizeOfStackReserve"},
    {63, Origin::kOptionalHeader, 0x4C, 4, Radix::kHex, "SizeOfStackCommit"},
    {64, Origin::kOptionalHeader, 0x50, 4, Radix::kHex, "SizeOfHeapReserve"},
    {65, Origin::kOptionalHeader, 0x54, 4, Radix::kHex, "SizeOfHeapCommit"},
    {66, Origin::kOptionalHeader, 0x58, 4, Radix::kHex, "LoaderFlags"},
    {67, Origin::kOptionalHeader, 0x5C, 4, Radix::kDecimal, "NumberOfRvaAndSizes"},
    {68, Origin::kOptionalHeader, 0x60, 4, Radix::kHex, "ExportTable.VirtualAddress"},
    {69, Origin::kOptionalHeader, 0x64, 4, Radix::kHex, "ExportTable.Size"},
    {70, Origin::kOptionalHeader, 0x68, 4, Radix::kHex, "ImportTable.VirtualAddress"},
    {71, Origin::kOptionalHeader, 0x6C, 4, Radix::kHex, "ImportTable.Size"},
    {72, Origin::kOptionalHeader, 0x70, 4, Radix::kHex, "ResourceTable.VirtualAddress"},
    {73, Origin::kOptionalHeader, 0x74, 4, Radix::kHex, "ResourceTable.Size"},
    {74, Origin::kOptionalHeader, 0x78, 4, Radix::kHex, "ExceptionTable.VirtualAddress"},
    {75, Origin::kOptionalHeader, 0x7C, 4, Radix::kHex, "ExceptionTable.Size"},
    {76, Origin::kOptionalHeader, 0x80, 4, Radix::kHex, "CertificateTable.VirtualAddress"},
    {77, Origin::kOptionalHeader, 0x84, 4, Radix::kHex, "CertificateTable.Size"},
    {78, Origin::kOptionalHeader, 0x88, 4, Radix::kHex, "BaseRelocationTable.VirtualAddress"},
    {79, Origin::kOptionalHeader, 0x8C, 4, Radix::kHex, "BaseRelocationTable.Size"},
    {80, Origin::kOptionalHeader, 0x90, 4, Radix::kHex, "Debug.VirtualAddress"},
    {81, Origin::kOptionalHeader, 0x94, 4, Radix::kHex, "Debug.Size"},
    {82, Origin::kOptionalHeader, 0x98, 4, Radix::kHex, "Architecture.VirtualAddress"},
    {83, Origin::kOptionalHeader, 0x9C, 4, Radix::kHex, "Architecture.Size"},
    {84, Origin::kOptionalHeader, 0xA0, 4, Radix::kHex, "GlobalPtr.VirtualAddress"},
    {85, Origin::kOptionalHeader, 0xA4, 4, Radix::kHex, "GlobalPtr.Size"},
    {86, Origin::kOptionalHeader, 0xA8, 4, Radix::kHex, "TLSTable.VirtualAddress"},
    {87, Origin::kOptionalHeader, 0xAC, 4, Radix::kHex, "TLSTable.Size"},
    {88, Origin::kOptionalHeader, 0xB0, 4, Radix::kHex, "LoadConfigTable.VirtualAddress"},
    {89, Origin::kOptionalHeader, 0xB4, 4, Radix::kHex, "LoadConfigTable.Size"},
    {90, Origin::kOptionalHeader, 0xB8, 4, Radix::kHex, "BoundImport.VirtualAddress"},
    {91, Origin::kOptionalHeader, 0xBC, 4, Radix::kHex, "BoundImport.Size"},
    {92, Origin::kOptionalHeader, 0xC0, 4, Radix::kHex, "IAT.VirtualAddress"},
    {93, Origin::kOptionalHeader, 0xC4, 4, Radix::kHex, "IAT.Size"},
    {94, Origin::kOptionalHeader, 0xC8, 4, Radix::kHex, "DelayImportDescriptor.VirtualAddress"},
    {95, Origin::kOptionalHeader, 0xCC, 4, Radix::kHex, "DelayImportDescriptor.Size"},
    {96, Origin::kOptionalHeader, 0xD0, 4, Radix::kHex, "CLRRuntimeHeader.VirtualAddress"},
    {97, Origin::kOptionalHeader, 0xD4, 4, Radix::kHex, "CLRRuntimeHeader.Size"},
    {98, Origin::kOptionalHeader, 0xD8, 4, Radix::kHex, "ReservedDirectory.VirtualAddress"},
    {99, Origin::kOptionalHeader, 0xDC, 4, Radix::kHex, "ReservedDirectory.Size"},
    {100, Origin::kDerived, 0, 4, Radix::kDecimal, "FileSize"},
    {101, Origin::kDerived, 0, 4, Radix::kHex, "OverlayOffset"},
    {102, Origin::kDerived, 0, 4, Radix::kDecimal, "OverlaySize"},
    {103, Origin::kDerived, 0, 4, Radix::kHex, "EntryPointOffset"},
    {104, Origin::kDerived, 0, 4, Radix::kDecimal, "EntryPointSection"},
    {105, Origin::kDerived, 0, 4, Radix::kHex, "EntryPointDelta"},
    {106, Origin::kDerived, 0, 4, Radix::kHex, "EntryBytes[0]"},
    {107, Origin::kDerived, 0, 4, Radix::kHex, "EntryBytes[4]"},
    {108, Origin::kDerived, 0, 4, Radix::kHex, "Rich.Offset"},
    {109, Origin::kDerived, 0, 4, Radix::kHex, "Rich.Key"},
    {110, Origin::kDerived, 0, 4, Radix::kDecimal, "Rich.Count"},
    {111, Origin::kDerived, 0, 4, Radix::kHex, "Rich.LastBuild"},
    {112, Origin::kDerived, 0, 4, Radix::kDecimal, "ImportModuleCount"},
    {113, Origin::kDerived, 0, 4, Radix::kDecimal, "ImportFunctionCount"},
    {114, Origin::kDerived, 0, 4, Radix::kDecimal, "ExportNameCount"},
    {115, Origin::kDerived, 0, 4, Radix::kDecimal, "ResourceCount"},
    {116, Origin::kDerived, 0, 4, Radix::kHex, "ImageBaseHigh"},
    {117, Origin::kDerived, 0, 4, Radix::kHex, "CLRRuntimeHeader.Flags"},
    {118, Origin::kDerived, 0, 4, Radix::kHex, "VB.HeaderOffset"},
    {119, Origin::kVbHeader, 0, 4, Radix::kHex, "VB.Signature"},
    {120, Origin::kVbHeader, 4, 2, Radix::kHex, "VB.RuntimeBuild"},
    {121, Origin::kVbHeader, 0x22, 2, Radix::kHex, "VB.RuntimeRevision"},
    {122, Origin::kVbHeader, 0x24, 4, Radix::kHex, "VB.LCID"},
    {123, Origin::kVbHeader, 0x28, 4, Radix::kHex, "VB.SecondLCID"},
    {124, Origin::kVbHeader, 0x2C, 4, Radix::kHex, "VB.SubMain"},
    {125, Origin::kVbHeader, 0x30, 4, Radix::kHex, "VB.ProjectData"},
    {126, Origin::kVbHeader, 0x34, 4, Radix::kHex, "VB.IntrinsicControls"},
    {127, Origin::kVbHeader, 0x38, 4, Radix::kHex, "VB.IntrinsicControls2"},
    {128, Origin::kVbHeader, 0x3C, 4, Radix::kHex, "VB.ThreadFlags"},
    {129, Origin::kVbHeader, 0x40, 4, Radix::kDecimal, "VB.ThreadCount"},
    {130, Origin::kVbHeader, 0x44, 2, Radix::kDecimal, "VB.FormCount"},
    {131, Origin::kVbHeader, 0x46, 2, Radix::kDecimal, "VB.ExternalCount"},
    {132, Origin::kVbHeader, 0x48, 4, Radix::kDecimal, "VB.ThunkCount"},
    {133, Origin::kVbHeader, 0x4C, 4, Radix::kHex, "VB.FormTable"},
    {134, Origin::kVbHeader, 0x50, 4, Radix::kHex, "VB.ExternalTable"},
    {135, Origin::kVbHeader, 0x54, 4, Radix::kHex, "VB.ComRegisterData"},
    {136, Origin::kVbHeader, 0x58, 4, Radix::kHex, "VB.ProjectDescription"},
    {137, Origin::kVbHeader, 0x5C, 4, Radix::kHex, "VB.ProjectExeName"},
    {138, Origin::kVbHeader, 0x60, 4, Radix::kHex, "VB.ProjectHelpFile"},
    {139, Origin::kVbHeader, 0x64, 4, Radix::kHex, "VB.ProjectName"},
    {140, Origin::kVbProject, 0, 4, Radix::kDecimal, "VB.Project.Version"},
    {141, Origin::kVbProject, 4, 4, Radix::kHex, "VB.Project.ObjectTable"},
    {142, Origin::kVbProject, 8, 4, Radix::kHex, "VB.Project.Null"},
    {143, Origin::kVbProject, 0xC, 4, Radix::kHex, "VB.Project.CodeStart"},
    {144, Origin::kVbProject, 0x10, 4, Radix::kHex, "VB.Project.CodeEnd"},
    {145, Origin::kVbProject, 0x14, 4, Radix::kHex, "VB.Project.DataSize"},
    {146, Origin::kVbProject, 0x18, 4, Radix::kHex, "VB.Project.ThreadSpace"},
    {147, Origin::kVbProject, 0x1C, 4, Radix::kHex, "VB.Project.ExceptionHandler"},
    {148, Origin::kVbProject, 0x20, 4, Radix::kHex, "VB.Project.NativeCode"},
    {149, Origin::kVbProject, 0x234, 4, Radix::kHex, "VB.Project.ExternalTable"},
    {150, Origin::kVbProject, 0x238, 4, Radix::kDecimal, "VB.Project.ExternalCount"},
    {151, Origin::kVbObjectTable, 0, 4, Radix::kHex, "VB.ObjectTable.HeapLink"},
    {152, Origin::kVbObjectTable, 4, 4, Radix::kHex, "VB.ObjectTable.ExecProject"},
    {153, Origin::kVbObjectTable, 8, 4, Radix::kHex, "VB.ObjectTable.Project2"},
    {154, Origin::kVbObjectTable, 0xC, 4, Radix::kHex, "VB.ObjectTable.Reserved"},
    {155, Origin::kVbObjectTable, 0x10, 4, Radix::kHex, "VB.ObjectTable.Null"},
    {156, Origin::kVbObjectTable, 0x14, 4, Radix::kHex, "VB.ObjectTable.ProjectObject"},
    {157, Origin::kVbObjectTable, 0x18, 4, Radix::kHex, "VB.ObjectTable.Uuid[0]"},
    {158, Origin::kVbObjectTable, 0x1C, 4, Radix::kHex, "VB.ObjectTable.Uuid[1]"},
    {159, Origin::kVbObjectTable, 0x20, 4, Radix::kHex, "VB.ObjectTable.Uuid[2]"},
    {160, Origin::kVbObjectTable, 0x24, 4, Radix::kHex, "VB.ObjectTable.Uuid[3]"},
    {161, Origin::kVbObjectTable, 0x28, 2, Radix::kHex, "VB.ObjectTable.CompileState"},
    {162, Origin::kVbObjectTable, 0x2A, 2, Radix::kDecimal, "VB.ObjectTable.TotalObjects"},
    {163, Origin::kVbObjectTable, 0x2C, 2, Radix::kDecimal, "VB.ObjectTable.CompiledObjects"},
    {164, Origin::kVbObjectTable, 0x2E, 2, Radix::kDecimal, "VB.ObjectTable.ObjectsInUse"},
    {165, Origin::kVbObjectTable, 0x30, 4, Radix::kHex, "VB.ObjectTable.ObjectArray"},
    {166, Origin::kVbObjectTable, 0x34, 4, Radix::kHex, "VB.ObjectTable.IdeFlag"},
    {167, Origin::kVbObjectTable, 0x38, 4, Radix::kHex, "VB.ObjectTable.IdeData"},
    {168, Origin::kVbObjectTable, 0x3C, 4, Radix::kHex, "VB.ObjectTable.IdeData2"},
    {169, Origin::kVbObjectTable, 0x40, 4, Radix::kHex, "VB.ObjectTable.ProjectName"},
    {170, Origin::kVbObjectTable, 0x44, 4, Radix::kHex, "VB.ObjectTable.LCID"},
    {171, Origin::kVbObjectTable, 0x48, 4, Radix::kHex, "VB.ObjectTable.SecondLCID"},
    {172, Origin::kVbObjectTable, 0x4C, 4, Radix::kHex, "VB.ObjectTable.IdeData3"},
    {173, Origin::kVbObjectTable, 0x50, 4, Radix::kHex, "VB.ObjectTable.Identifier"},
    {174, Origin::kVbComData, 0, 4, Radix::kHex, "VB.Com.RegInfo"},
    {175, Origin::kVbComData, 4, 4, Radix::kHex, "VB.Com.ProjectName"},
    {176, Origin::kVbComData, 8, 4, Radix::kHex, "VB.Com.HelpDirectory"},
    {177, Origin::kVbComData, 0xC, 4, Radix::kHex, "VB.Com.ProjectDescription"},
    {178, Origin::kVbComData, 0x10, 4, Radix::kHex, "VB.Com.Uuid[0]"},
    {179, Origin::kVbComData, 0x14, 4, Radix::kHex, "VB.Com.Uuid[1]"},
    {180, Origin::kVbComData, 0x18, 4, Radix::kHex, "VB.Com.Uuid[2]"},
    {181, Origin::kVbComData, 0x1C, 4, Radix::kHex, "VB.Com.Uuid[3]"},
    {182, Origin::kVbComData, 0x20, 4, Radix::kHex, "VB.Com.TypeLibLCID"},
    {183, Origin::kVbComData, 0x24, 2, Radix::kHex, "VB.Com.Unknown"},
    {184, Origin::kVbComData, 0x26, 2, Radix::kDecimal, "VB.Com.TypeLibMajor"},
    {185, Origin::kVbComData, 0x28, 2, Radix::kDecimal, "VB.Com.TypeLibMinor"},
    {186, Origin::kVbProject2, 0, 4, Radix::kHex, "VB.Project2.HeapLink"},
    {187, Origin::kVbProject2, 4, 4, Radix::kHex, "VB.Project2.ObjectTable"},
    {188, Origin::kVbProject2, 8, 4, Radix::kHex, "VB.Project2.Reserved"},
    {189, Origin::kVbProject2, 0xC, 4, Radix::kHex, "VB.Project2.Unused"},
    {190, Origin::kVbProject2, 0x10, 4, Radix::kHex, "VB.Project2.ObjectList"},
    {191, Origin::kVbProject2, 0x14, 4, Radix::kHex, "VB.Project2.Unused2"},
    {192, Origin::kVbProject2, 0x18, 4, Radix::kHex, "VB.Project2.ProjectDescription"},
    {193, Origin::kVbProject2, 0x1C, 4, Radix::kHex, "VB.Project2.ProjectHelpFile"},
    {194, Origin::kVbProject2, 0x20, 4, Radix::kHex, "VB.Project2.Reserved2"},
    {195, Origin::kVbProject2, 0x24, 4, Radix::kHex, "VB.Project2.HelpContextId"},
    {196, Origin::kVbForm, 0, 4, Radix::kHex, "VB.Form.StructureSize"},
    {197, Origin::kVbForm, 4, 4, Radix::kHex, "VB.Form.ObjectUuid[0]"},
    {198, Origin::kVbForm, 8, 4, Radix::kHex, "VB.Form.ObjectUuid[1]"},
    {199, Origin::kVbForm, 0xC, 4, Radix::kHex, "VB.Form.ObjectUuid[2]"},
    {200, Origin::kVbForm, 0x10, 4, Radix::kHex, "VB.Form.ObjectUuid[3]"},
    {201, Origin::kVbForm, 0x14, 4, Radix::kHex, "VB.Form.Unknown[0]"},
    {202, Origin::kVbForm, 0x18, 4, Radix::kHex, "VB.Form.Unknown[1]"},
    {203, Origin::kVbForm, 0x1C, 4, Radix::kHex, "VB.Form.Unknown[2]"},
    {204, Origin::kVbForm, 0x20, 4, Radix::kHex, "VB.Form.Unknown[3]"},
    {205, Origin::kVbForm, 0x24, 4, Radix::kHex, "VB.Form.ObjectId"},
    {206, Origin::kVbForm, 0x28, 4, Radix::kHex, "VB.Form.Unknown[4]"},
    {207, Origin::kVbForm, 0x2C, 4, Radix::kHex, "VB.Form.OleMisc"},
    {208, Origin::kVbForm, 0x30, 4, Radix::kHex, "VB.Form.Uuid[0]"},
    {209, Origin::kVbForm, 0x34, 4, Radix::kHex, "VB.Form.Uuid[1]"},
    {210, Origin::kVbForm, 0x38, 4, Radix::kHex, "VB.Form.Uuid[2]"},
    {211, Origin::kVbForm, 0x3C, 4, Radix::kHex, "VB.Form.Uuid[3]"},
    {212, Origin::kVbForm, 0x40, 4, Radix::kHex, "VB.Form.Unknown[5]"},
    {213, Origin::kVbForm, 0x44, 4, Radix::kHex, "VB.Form.Unknown[6]"},
    {214, Origin::kVbForm, 0x48, 4, Radix::kHex, "VB.Form.FormPointer"},
    {215, Origin::kVbForm, 0x4C, 4, Radix::kHex, "VB.Form.Unknown[7]"},
    {216, Origin::kVbExternals, 0, 4, Radix::kHex, "VB.External[0].Kind"},
    {217, Origin::kVbExternals, 4, 4, Radix::kHex, "VB.External[0].Descriptor"},
    {218, Origin::kVbExternals, 8, 4, Radix::kHex, "VB.External[1].Kind"},
    {219, Origin::kVbExternals, 0xC, 4, Radix::kHex, "VB.External[1].Descriptor"},
    {220, Origin::kVbExternals, 0x10, 4, Radix::kHex, "VB.External[2].Kind"},
    {221, Origin::kVbExternals, 0x14, 4, Radix::kHex, "VB.External[2].Descriptor"},
    {222, Origin::kVbExternals, 0x18, 4, Radix::kHex, "VB.External[3].Kind"},
    {223, Origin::kVbExternals, 0x1C, 4, Radix::kHex, "VB.External[3].Descriptor"},
    {224, Origin::kVbExternals, 0x20, 4, Radix::kHex, "VB.External[4].Kind"},
    {225, Origin::kVbExternals, 0x24, 4, Radix::kHex, "VB.External[4].Descriptor"},
    {226, Origin::kVbExternals, 0x28, 4, Radix::kHex, "VB.External[5].Kind"},
    {227, Origin::kVbExternals, 0x2C, 4, Radix::kHex, "VB.External[5].Descriptor"},
    {228, Origin::kVbExternals, 0x30, 4, Radix::kHex, "VB.External[6].Kind"},
    {229, Origin::kVbExternals, 0x34, 4, Radix::kHex, "VB.External[6].Descriptor"},
    {230, Origin::kVbExternals, 0x38, 4, Radix::kHex, "VB.External[7].Kind"},
    {231, Origin::kVbExternals, 0x3C, 4, Radix::kHex, "VB.External[7].Descriptor"},
    {232, Origin::kVbExternals, 0x40, 4, Radix::kHex, "VB.External[8].Kind"},
    {233, Origin::kVbExternals, 0x44, 4, Radix::kHex, "VB.External[8].Descriptor"},
    {234, Origin::kVbExternals, 0x48, 4, Radix::kHex, "VB.External[9].Kind"},
    {235, Origin::kVbExternals, 0x4C, 4, Radix::kHex, "VB.External[9].Descriptor"},
    {236, Origin::kVbExternals, 0x50, 4, Radix::kHex, "VB.External[10].Kind"},
    {237, Origin::kVbExternals, 0x54, 4, Radix::kHex, "VB.External[10].Descriptor"},
    {238, Origin::kVbExternals, 0x58, 4, Radix::kHex, "VB.External[11].Kind"},
    {239, Origin::kVbExternals, 0x5C, 4, Radix::kHex, "VB.External[11].Descriptor"},
    {240, Origin::kVbExternals, 0x60, 4, Radix::kHex, "VB.External[12].Kind"},
    {241, Origin::kVbExternals, 0x64, 4, Radix::kHex, "VB.External[12].Descriptor"},
    {242, Origin::kVbExternals, 0x68, 4, Radix::kHex, "VB.External[13].Kind"},
    {243, Origin::kVbExternals, 0x6C, 4, Radix::kHex, "VB.External[13].Descriptor"},
    {244, Origin::kVbExternals, 0x70, 4, Radix::kHex, "VB.External[14].Kind"},
    {245, Origin::kVbExternals, 0x74, 4, Radix::kHex, "VB.External[14].Descriptor"},
    {246, Origin::kVbExternals, 0x78, 4, Radix::kHex, "VB.External[15].Kind"},
    {247, Origin::kVbExternals, 0x7C, 4, Radix::kHex, "VB.External[15].Descriptor"},
    {248, Origin::kVbExternals, 0x80, 4, Radix::kHex, "VB.External[16].Kind"},
    {249, Origin::kVbExternals, 0x84, 4, Radix::kHex, "VB.External[16].Descriptor"},
    {250, Origin::kVbExternals, 0x88, 4, Radix::kHex, "VB.External[17].Kind"},
    {251, Origin::kVbExternals, 0x8C, 4, Radix::kHex, "VB.External[17].Descriptor"},
    {252, Origin::kVbExternals, 0x90, 4, Radix::kHex, "VB.External[18].Kind"},
    {253, Origin::kVbExternals, 0x94, 4, Radix::kHex, "VB.External[18].Descriptor"},
    {254, Origin::kVbExternals, 0x98, 4, Radix::kHex, "VB.External[19].Kind"},
    {255, Origin::kVbExternals, 0x9C, 4, Radix::kHex, "VB.External[19].Descriptor"},
    {256, Origin::kVbExternals, 0xA0, 4, Radix::kHex, "VB.External[20].Kind"},
    {257, Origin::kVbExternals, 0xA4, 4, Radix::kHex, "VB.External[20].Descriptor"},
    {258, Origin::kVbExternals, 0xA8, 4, Radix::kHex, "VB.External[21].Kind"},
    {259, Origin::kVbExternals, 0xAC, 4, Radix::kHex, "VB.External[21].Descriptor"},
    {260, Origin::kVbExternals, 0xB0, 4, Radix::kHex, "VB.External[22].Kind"},
    {261, Origin::kVbExternals, 0xB4, 4, Radix::kHex, "VB.External[22].Descriptor"},
    {262, Origin::kVbExternals, 0xB8, 4, Radix::kHex, "VB.External[23].Kind"},
    {263, Origin::kVbExternals, 0xBC, 4, Radix::kHex, "VB.External[23].Descriptor"},
};

// The numbers that code uses are these places.
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
static_assert(kHeaderFields[header_field::kVbFormTable].name == "VB.FormTable");
static_assert(kHeaderFields[header_field::kVbComRegisterData].name == "VB.ComRegisterData");
static_assert(kHeaderFields[header_field::kVbNativeCode].name == "VB.Project.NativeCode");
static_assert(kHeaderFields[header_field::kVbExternalCount].name == "VB.Project.ExternalCount");
static_assert(kHeaderFields[header_field::kVbProject2].name == "VB.ObjectTable.Project2");
static_assert(kHeaderFields[header_field::kVbObjectArray].name == "VB.ObjectTable.ObjectArray");

constexpr Field kSectionFields[] = {
    {1, Origin::kSectionHeader, 8, 4, Radix::kHex, "VirtualSize"},
    {2, Origin::kSectionHeader, 0xC, 4, Radix::kHex, "VirtualAddress"},
    {3, Origin::kSectionHeader, 0x10, 4, Radix::kHex, "SizeOfRawData"},
    {4, Origin::kSectionHeader, 0x14, 4, Radix::kHex, "PointerToRawData"},
    {5, Origin::kSectionHeader, 0x18, 4, Radix::kHex, "PointerToRelocations"},
    {6, Origin::kSectionHeader, 0x1C, 4, Radix::kHex, "PointerToLinenumbers"},
    {7, Origin::kSectionHeader, 0x20, 2, Radix::kDecimal, "NumberOfRelocations"},
    {8, Origin::kSectionHeader, 0x22, 2, Radix::kDecimal, "NumberOfLinenumbers"},
    {9, Origin::kSectionHeader, 0x24, 4, Radix::kHex, "Characteristics"},
};

constexpr Field kImportTableFields[] = {
    {0, Origin::kImportDescriptor, 0, 4, Radix::kHex, "OriginalFirstThunk"},
    {1, Origin::kImportDescriptor, 4, 4, Radix::kHex, "TimeDateStamp"},
    {2, Origin::kImportDescriptor, 8, 4, Radix::kHex, "ForwarderChain"},
    {3, Origin::kImportDescriptor, 0xC, 4, Radix::kHex, "Name"},
    {4, Origin::kImportDescriptor, 0x10, 4, Radix::kHex, "FirstThunk"},
};

constexpr Field kObjectFields[] = {
    {0, Origin::kVbObject, 0, 4, Radix::kHex, "ObjectInfo"},
    {1, Origin::kVbObject, 4, 4, Radix::kHex, "Reserved"},
    {2, Origin::kVbObject, 8, 4, Radix::kHex, "PublicBytes"},
    {3, Origin::kVbObject, 0xC, 4, Radix::kHex, "StaticBytes"},
    {4, Origin::kVbObject, 0x10, 4, Radix::kHex, "ModulePublic"},
    {5, Origin::kVbObject, 0x14, 4, Radix::kHex, "ModuleStatic"},
    {6, Origin::kVbObject, 0x18, 4, Radix::kHex, "ObjectName"},
    {7, Origin::kVbObject, 0x1C, 4, Radix::kDecimal, "MethodCount"},
    {8, Origin::kVbObject, 0x20, 4, Radix::kHex, "MethodNames"},
    {9, Origin::kVbObject, 0x24, 4, Radix::kHex, "StaticVars"},
    {10, Origin::kVbObject, 0x28, 4, Radix::kHex, "ObjectType"},
    {11, Origin::kVbObject, 0x2C, 4, Radix::kHex, "Null"},
    {12, Origin::kVbObjectInfo, 0, 2, Radix::kDecimal, "Info.RefCount"},
    {13, Origin::kVbObjectInfo, 2, 2, Radix::kDecimal, "Info.ObjectIndex"},
    {14, Origin::kVbObjectInfo, 4, 4, Radix::kHex, "Info.ObjectTable"},
    {15, Origin::kVbObjectInfo, 8, 4, Radix::kHex, "Info.IdeData"},
    {16, Origin::kVbObjectInfo, 0xC, 4, Radix::kHex, "Info.PrivateObject"},
    {17, Origin::kVbObjectInfo, 0x10, 4, Radix::kHex, "Info.Reserved"},
    {18, Origin::kVbObjectInfo, 0x14, 4, Radix::kHex, "Info.Null"},
    {19, Origin::kVbObjectInfo, 0x18, 4, Radix::kHex, "Info.Object"},
    {20, Origin::kVbObjectInfo, 0x1C, 4, Radix::kHex, "Info.ProjectData"},
    {21, Origin::kVbObjectInfo, 0x20, 2, Radix::kDecimal, "Info.MethodCount"},
    {22, Origin::kVbObjectInfo, 0x22, 2, Radix::kDecimal, "Info.MethodCount2"},
    {23, Origin::kVbObjectInfo, 0x24, 4, Radix::kHex, "Info.Methods"},
    {24, Origin::kVbObjectInfo, 0x28, 2, Radix::kDecimal, "Info.Constants"},
    {25, Origin::kVbObjectInfo, 0x2A, 2, Radix::kDecimal, "Info.MaxConstants"},
    {26, Origin::kVbObjectInfo, 0x2C, 4, Radix::kHex, "Info.IdeData2"},
    {27, Origin::kVbObjectInfo, 0x30, 4, Radix::kHex, "Info.IdeData3"},
    {28, Origin::kVbObjectInfo, 0x34, 4, Radix::kHex, "Info.ConstantPool"},
    {29, Origin::kVbObjectOptional, 0, 4, Radix::kDecimal, "Optional.GuidCount"},
    {30, Origin::kVbObjectOptional, 4, 4, Radix::kHex, "Optional.ObjectClsid"},
    {31, Origin::kVbObjectOptional, 8, 4, Radix::kHex, "Optional.Null"},
    {32, Origin::kVbObjectOptional, 0xC, 4, Radix::kHex, "Optional.GuidTypes"},
    {33, Origin::kVbObjectOptional, 0x10, 4, Radix::kDecimal, "Optional.GuidTypeCount"},
    {34, Origin::kVbObjectOptional, 0x14, 4, Radix::kHex, "Optional.Controls2"},
    {35, Origin::kVbObjectOptional, 0x18, 4, Radix::kHex, "Optional.Null2"},
    {36, Origin::kVbObjectOptional, 0x1C, 4, Radix::kHex, "Optional.ObjectGuid2"},
    {37, Origin::kVbObjectOptional, 0x20, 4, Radix::kDecimal, "Optional.ControlCount"},
    {38, Origin::kVbObjectOptional, 0x24, 4, Radix::kHex, "Optional.Controls"},
    {39, Origin::kVbObjectOptional, 0x28, 2, Radix::kDecimal, "Optional.EventCount"},
    {40, Origin::kVbObjectOptional, 0x2A, 2, Radix::kDecimal, "Optional.PCodeCount"},
    {41, Origin::kVbObjectOptional, 0x2C, 2, Radix::kHex, "Optional.InitializeEvent"},
    {42, Origin::kVbObjectOptional, 0x2E, 2, Radix::kHex, "Optional.TerminateEvent"},
    {43, Origin::kVbObjectOptional, 0x30, 4, Radix::kHex, "Optional.EventLinks"},
};

constexpr NamedNumber kOperators[] = {
    {1, "=="}, {2, "!="}, {3, "<"}, {4, ">"}, {5, "<="}, {6, ">="}, {7, "has"},
};

constexpr NamedNumber kSectionRoles[] = {
    {505, "any"},        {506, "any_code"}, {507, "any_data"}, {600, "last"},         {601, "entry"},
    {602, "code"},       {603, "data"},     {604, "import"},   {605, "resource"},     {606, "export"},
    {607, "relocation"}, {608, "tls"},      {609, "largest"},  {610, "next_to_last"},
};

constexpr NamedNumber kResourceTypes[] = {
    {1, "CURSOR"},        {2, "BITMAP"},         {3, "ICON"},        {4, "MENU"},        {5, "DIALOG"},
    {6, "STRING"},        {7, "FONTDIR"},        {8, "FONT"},        {9, "ACCELERATOR"}, {10, "RCDATA"},
    {11, "MESSAGETABLE"}, {12, "GROUP_CURSOR"},  {14, "GROUP_ICON"}, {16, "VERSION"},    {17, "DLGINCLUDE"},
    {19, "PLUGPLAY"},     {20, "VXD"},           {21, "ANICURSOR"},  {22, "ANIICON"},    {23, "HTML"},
    {24, "MANIFEST"},     {kAnyResource, "any"},
};

// 1..29 belong to version resources, 30..35 to manifests, 0 to both.
constexpr NamedNumber kResourceKeys[] = {
    {0, "Any"},
    {1, "Comments"},
    {2, "CompanyName"},
    {3, "FileDescription"},
    {4, "FileVersion"},
    {5, "InternalName"},
    {6, "LegalCopyright"},
    {7, "LegalTrademarks"},
    {8, "OriginalFilename"},
    {9, "PrivateBuild"},
    {10, "ProductName"},
    {11, "ProductVersion"},
    {12, "SpecialBuild"},
    {13, "OLESelfRegister"},
    {14, "AssemblyVersion"},
    {15, "Author"},
    {16, "Publisher"},
    {17, "Website"},
    {18, "Email"},
    {19, "Support"},
    {20, "License"},
    {21, "Language"},
    {22, "Build"},
    {23, "BuildDate"},
    {24, "BuildNumber"},
    {25, "Compiler"},
    {26, "CompiledScript"},
    {27, "Platform"},
    {28, "FixedFileVersion"},
    {29, "FixedProductVersion"},
    {30, "ManifestName"},
    {31, "ManifestVersion"},
    {32, "ManifestArchitecture"},
    {33, "ManifestDescription"},
    {34, "RequestedExecutionLevel"},
    {35, "DependencyName"},
};

constexpr NamedNumber kTargetNames[] = {
    {0, "library"},   {1, "program"}, {2, "driver"},  {4, "managed"},
    {8, "installer"}, {16, "packed"}, {64, "script"}, {128, "damaged"},
};

constexpr NamedNumber kTraitNames[] = {
    {trait::kOverlay, "overlay"},
    {trait::kEntryInLast, "entry_in_last"},
    {trait::kWritableEntry, "writable_entry"},
    {trait::kExecutableLast, "executable_last"},
    {trait::kFewImports, "few_imports"},
    {trait::kVirtualSection, "virtual_section"},
    {trait::kVisualBasic, "visual_basic"},
    {trait::kNativeCode, "native_code"},
};

constexpr uint8_t Code(StringKind kind) {
    return static_cast<uint8_t>(kind);
}

constexpr uint8_t Code(MeasureRegion region) {
    return static_cast<uint8_t>(region);
}

constexpr uint8_t Code(SectionRole role) {
    return static_cast<uint8_t>(Code(MeasureRegion::kFirstRole) + (static_cast<uint16_t>(role) - kFirstSectionRole));
}

constexpr Region kRegions[] = {
    {"file", RegionArgument::kNone, Code(StringKind::kFile), Code(MeasureRegion::kFile)},
    {"headers", RegionArgument::kNone, Code(StringKind::kHeaders), Code(MeasureRegion::kHeaders)},
    {"dos_stub", RegionArgument::kNone, Code(StringKind::kDosStub), Code(MeasureRegion::kDosStub)},
    {"overlay", RegionArgument::kNone, Code(StringKind::kOverlay), Code(MeasureRegion::kOverlay)},
    {"entry_code", RegionArgument::kNone, Code(StringKind::kEntryCode), Code(MeasureRegion::kEntryCode)},
    {"section", RegionArgument::kIndex, Code(StringKind::kIndexedSection), Code(MeasureRegion::kIndexedSection)},
    {"section", RegionArgument::kName, Code(StringKind::kNamedSection), 0},
    {"last", RegionArgument::kNone, Code(StringKind::kLastSection), Code(SectionRole::kLast)},
    {"entry", RegionArgument::kNone, Code(StringKind::kEntrySection), Code(SectionRole::kEntry)},
    {"code", RegionArgument::kNone, Code(StringKind::kCodeSection), Code(SectionRole::kCode)},
    {"data", RegionArgument::kNone, 0, Code(SectionRole::kData)},
    {"import", RegionArgument::kNone, Code(StringKind::kImportSection), Code(SectionRole::kImport)},
    {"resource", RegionArgument::kNone, Code(StringKind::kResourceSection), Code(SectionRole::kResource)},
    {"export", RegionArgument::kNone, Code(StringKind::kExportSection), Code(SectionRole::kExport)},
    {"relocation", RegionArgument::kNone, 0, Code(SectionRole::kRelocation)},
    {"tls", RegionArgument::kNone, 0, Code(SectionRole::kTls)},
    {"largest", RegionArgument::kNone, Code(StringKind::kLargestSection), Code(SectionRole::kLargest)},
    {"next_to_last", RegionArgument::kNone, 0, Code(SectionRole::kNextToLast)},
    {"resource_data", RegionArgument::kIndex, Code(StringKind::kResourceData), Code(MeasureRegion::kResourceData)},
    {"vb", RegionArgument::kNone, Code(StringKind::kVisualBasic), Code(MeasureRegion::kVisualBasic)},
};

// Lookups by number take the position in the table for granted.
template <std::size_t kCount>
constexpr bool HasNoGap(const Field (&fields)[kCount]) {
    for (std::size_t i = 0; i < kCount; ++i)
        if (fields[i].number != fields[0].number + i)
            return false;
    return true;
}

static_assert(HasNoGap(kHeaderFields) && std::size(kHeaderFields) == 264);
static_assert(HasNoGap(kSectionFields) && std::size(kSectionFields) == 9);
static_assert(HasNoGap(kImportTableFields) && std::size(kImportTableFields) == 5);
static_assert(HasNoGap(kObjectFields) && std::size(kObjectFields) == 44);
static_assert(kHeaderFields[37].name == "Characteristics" && kHeaderFields[67].name == "NumberOfRvaAndSizes" &&
              kHeaderFields[119].name == "VB.Signature" && kHeaderFields[140].name == "VB.Project.Version");
static_assert(std::size(kResourceKeys) == 36);

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

std::span<const NamedNumber> Operators() {
    return kOperators;
}

std::span<const NamedNumber> SectionRoles() {
    return kSectionRoles;
}

std::span<const NamedNumber> ResourceTypes() {
    return kResourceTypes;
}

std::span<const NamedNumber> ResourceKeys() {
    return kResourceKeys;
}

std::span<const NamedNumber> TargetNames() {
    return kTargetNames;
}

std::span<const NamedNumber> TraitNames() {
    return kTraitNames;
}

std::span<const Region> Regions() {
    return kRegions;
}

const Field *FindField(std::span<const Field> fields, uint32_t number) {
    const uint32_t first = fields.front().number;
    return number >= first && number - first < fields.size() ? &fields[number - first] : nullptr;
}

const Field *FindField(std::span<const Field> fields, std::string_view name) {
    const auto found = std::ranges::find(fields, name, &Field::name);
    return found != fields.end() ? &*found : nullptr;
}

std::string_view NameOf(std::span<const NamedNumber> names, uint32_t number) {
    const auto found = std::ranges::find(names, number, &NamedNumber::number);
    return found != names.end() ? found->name : std::string_view{};
}

std::optional<uint32_t> NumberOf(std::span<const NamedNumber> names, std::string_view name) {
    const auto found = std::ranges::find(names, name, &NamedNumber::name);
    return found != names.end() ? std::optional(found->number) : std::nullopt;
}

std::string_view OperatorText(Operator op) {
    return NameOf(kOperators, static_cast<uint32_t>(op));
}

const Region *FindStringRegion(uint8_t string_kind) {
    if (string_kind == 0 || string_kind > kMaxStringKind)
        return nullptr;
    const auto found = std::ranges::find(kRegions, ForwardKind(string_kind), &Region::string_kind);
    return found != std::end(kRegions) ? found : nullptr;
}

const Region *FindMeasureRegion(uint8_t measure_code) {
    if (measure_code == 0)
        return nullptr;
    const auto found = std::ranges::find(kRegions, measure_code, &Region::measure_code);
    return found != std::end(kRegions) ? found : nullptr;
}

const Region *FindRegion(std::string_view name, RegionArgument argument) {
    const auto found = std::ranges::find_if(
        kRegions, [&](const Region &region) { return region.name == name && region.argument == argument; });
    return found != std::end(kRegions) ? found : nullptr;
}

} // namespace tavrik::rules
