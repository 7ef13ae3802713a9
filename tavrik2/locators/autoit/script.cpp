// AutoIt wrappers whose script header is scanned for (entries 32, 33, 37, 43 and 47).

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/autoit_script_scan.h"
#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows43 = gate(
    in(NumberOfSections, 4, 6),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 9),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x1D000, 0x2E000),
    in(SizeOfInitializedData, 0x24000, 0x29000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    all(DllCharacteristics, 0x8000),
    is(ExportSize, 0),
    in(ImportSize, 0x120, 0x180),
    in(ResourceSize, 0x26000, 0x5A000),
    is(CertificateSize, 0));

constexpr auto kRows37 = gate(
    is(NumberOfSections, 5),
    all(Characteristics, 0x122),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x85000, 0x8F000),
    is(SizeOfUninitializedData, 0),
    in(AddressOfEntryPoint, 0x25000, 0x30000),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8040),
    is(ExportSize, 0),
    in(ImportSize, 0x100, 0x200),
    is(CertificateSize, 0),
    all(first_section::Characteristics, kMemReadExecute | kCntCode));

constexpr auto kRows47 = gate(
    is(NumberOfSections, 6),
    all(Characteristics, 0x22),
    is(MajorLinkerVersion, 11),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0xA3A00, 0xA4A00),
    in(SizeOfInitializedData, 0x56800, 0x1ACA00),
    is(SizeOfUninitializedData, 0),
    in(AddressOfEntryPoint, 0x2C000, 0x2D000),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8160),
    is(ExportSize, 0),
    in(ImportSize, 0x100, 0x200),
    at_least(ResourceSize, 0x17000),
    is(CertificateSize, 0),
    in(first_section::SizeOfRawData, 0xA3A00, 0xA4A00),
    all(first_section::Characteristics, kMemReadExecute | kCntCode));

constexpr auto kRows32 = gate(
    either(
        profile('A',
            is(NumberOfSections, 4),
            in(SizeOfCode, 0x7B000, 0x82000),
            in(SizeOfInitializedData, 0x1D000, 0x2F0000),
            is(SizeOfUninitializedData, 0),
            in(AddressOfEntryPoint, 0x16000, 0x18000),
            is(Subsystem, 2),
            is(ExportSize, 0),
            in(ImportSize, 0x140, 0x160),
            in(ResourceSize, 0x24000, 0x300000),
            is(BaseRelocationSize, 0),
            in(ImportAddressTableSize, 0x600, 0xA00),
            name(first_section::Name, ".text"),
            all(first_section::Characteristics, kMemReadExecute | kCntCode)),
        profile('B',
            is(NumberOfSections, 6),
            in(SizeOfCode, 0x88000, 0x90000),
            in(SizeOfInitializedData, 0x78000, 0x800000),
            is(SizeOfUninitializedData, 0),
            is(Subsystem, 2),
            is(ExportSize, 0),
            in(ImportSize, 0x160, 0x1A0),
            in(ResourceSize, 0x24000, 0x50000),
            in(ImportAddressTableSize, 0x600, 0xA00),
            name(first_section::Name, ".text"),
            all(first_section::Characteristics, kMemReadExecute | kCntCode)),
        profile('C',
            is(NumberOfSections, 3),
            in(SizeOfCode, 0x55000, 0x56000),
            in(SizeOfInitializedData, 0x14000, 0x1B000),
            in(SizeOfUninitializedData, 0x97000, 0x9E000),
            is(Subsystem, 2),
            is(ExportSize, 0),
            in(ImportSize, 0x400, 0x440),
            in(ResourceSize, 0x13000, 0x1B000),
            is(ImportAddressTableSize, 0))));

constexpr auto kRows33 = gate(
    either(
        profile('A',
            is(NumberOfSections, 3),
            is(MajorLinkerVersion, 11),
            is(MinorLinkerVersion, 0),
            in(SizeOfCode, 0x54000, 0x56000),
            in(SizeOfInitializedData, 0x11000, 0x13000),
            in(SizeOfUninitializedData, 0x90000, 0x9A000),
            in(AddressOfEntryPoint, 0xE5000, 0xEA000),
            is(Subsystem, 2),
            is(ExportSize, 0),
            in(ImportSize, 0x400, 0x440),
            in(ResourceSize, 0x11000, 0x12000),
            is(CertificateSize, 0),
            all(first_section::Characteristics, kMemReadWriteExecute | kCntInitializedData)),
        profile('B',
            in(NumberOfSections, 3, 5),
            all(Characteristics, 0x122),
            in(MajorLinkerVersion, 11, 18),
            is(MinorLinkerVersion, 0),
            in(SizeOfCode, 0x54000, 0x90000),
            in(SizeOfInitializedData, 0x83000, 0x507000),
            in(AddressOfEntryPoint, 0x26000, 0x5E0000),
            is(Subsystem, 2),
            all(DllCharacteristics, 0x8040),
            is(ExportSize, 0),
            in(ImportSize, 0xC0, 0x460),
            in(ResourceSize, 0x4A500, 0x506000),
            is(CertificateSize, 0),
            in(first_section::SizeOfRawData, 0x54000, 0x90000))));
// clang-format on

// Scans from the first raw-data resource or, in a file without one, from the end of the resource directory. A resource
// that is too small declines the file.
int ScanFromRawDataResource(const TargetFile &file, uint32_t smallest, Finding *finding) {
    ResourceDataEntry resource[1];
    uint32_t count;
    if (FindResourceDataEntries(file, file.resource_rva(), kEntry32ResourceType, resource, &count) == 0)
        return ReportHeader(file, FindAutoItScript, file.resource_rva() + file.resource_size(), finding);
    if (resource[0].Size < smallest)
        return kDeclined;
    return ReportHeader(file, FindAutoItScript, resource[0].OffsetToData, finding);
}

} // namespace

constinit const GateView kGate32 = kRows32;
constinit const GateView kGate33 = kRows33;
constinit const GateView kGate37 = kRows37;
constinit const GateView kGate43 = kRows43;
constinit const GateView kGate47 = kRows47;

int Locate32(const TargetFile &file, Finding *finding) {
    return ScanFromRawDataResource(file, kEntry32ResourceSize, finding);
}

int Locate33(const TargetFile &file, Finding *finding) {
    return ScanFromRawDataResource(file, kEntry33ResourceSize, finding);
}

int Locate37(const TargetFile &file, Finding *finding) {
    SectionHeader resources;
    if (!file.ReadSectionHeader(".rsrc", &resources))
        return kDeclined;
    return ReportHeader(file, FindAutoItScript, resources.VirtualAddress, finding);
}

int Locate43(const TargetFile &file, Finding *finding) {
    return ReportHeader(file, FindAutoItScript, file.resource_rva(), finding);
}

int Locate47(const TargetFile &file, Finding *finding) {
    return ScanFromRawDataResource(file, kEntry47ResourceSize, finding);
}

} // namespace tavrik2
