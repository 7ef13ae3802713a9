// AutoIt wrappers whose script header is scanned for in spite of altered bytes (entries 34, 45, 46, 48 and 49).

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/locators/scans/altered_autoit_scan.h"
#include "tavrik2/locators/scans/autoit_ea06_scan.h"
#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows34 = gate(
    in(NumberOfSections, 4, 6),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x80000, 0x81000),
    in(SizeOfInitializedData, 0x1D000, 0x1E000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    all(DllCharacteristics, 0x8000),
    is(ExportSize, 0),
    in(ImportSize, 0x150, 0x180),
    in(ResourceSize, 0x5000, 0x67000),
    is(CertificateSize, 0));

constexpr auto kRows46 = gate(
    in(NumberOfSections, 2, 3),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 8),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x66000, 0x6A000),
    in(SizeOfInitializedData, 0x24A00, 0x25000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    all(DllCharacteristics, 0x8000),
    is(ExportSize, 0),
    in(ImportSize, 0x80, 0x100),
    in(ResourceSize, 0x13000, 0x14000),
    is(CertificateSize, 0));

constexpr auto kRows48 = gate(
    is(NumberOfSections, 4),
    is(Characteristics, 0x123),
    is(MajorLinkerVersion, 10),
    in(SizeOfCode, 0x80000, 0x81000),
    in(SizeOfInitializedData, 0xE0000, 0x150000),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8000),
    is(ExportSize, 0),
    in(ImportSize, 0x150, 0x160),
    in(ResourceSize, 0xD0000, 0x120000),
    is(CertificateSize, 0));

constexpr auto kRows49 = gate(
    is(NumberOfSections, 4),
    all(Characteristics, 0x123),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x80000, 0x90000),
    in(SizeOfInitializedData, 0x49000, 0x79000),
    is(SizeOfUninitializedData, 0),
    in(AddressOfEntryPoint, 0x16000, 0x17000),
    is(Subsystem, 2),
    is(DllCharacteristics, 0x8000),
    is(ExportSize, 0),
    in(ImportSize, 0x100, 0x200),
    at_least(ResourceSize, 0x30000),
    is(CertificateSize, 0),
    in(first_section::SizeOfRawData, 0x80000, 0x90000),
    all(first_section::Characteristics, kMemReadExecute | kCntCode));

constexpr auto kRows45 = gate(
    in(NumberOfSections, 4, 5),
    in(SizeOfCode, 0x80000, 0x81000),
    in(SizeOfInitializedData, 0x1D000, 0x1E000),
    is(SizeOfUninitializedData, 0),
    is(Subsystem, 2),
    is(ExportSize, 0),
    in(ImportSize, 0x150, 0x180),
    in(ResourceSize, 0xA600, 0x141000),
    is(CertificateSize, 0),
    all(first_section::Characteristics, kMemReadExecute | kCntCode));
// clang-format on

} // namespace

constinit const GateView kGate34 = kRows34;
constinit const GateView kGate45 = kRows45;
constinit const GateView kGate46 = kRows46;
constinit const GateView kGate48 = kRows48;
constinit const GateView kGate49 = kRows49;

int Locate34(const TargetFile &file, Finding *finding) {
    return ReportHeader(file, FindAlteredAutoItHeader, file.resource_rva(), finding);
}

int Locate46(const TargetFile &file, Finding *finding) {
    return ReportHeader(file, FindAutoItEA06Header, file.resource_rva() + file.resource_size(), finding);
}

int Locate48(const TargetFile &file, Finding *finding) {
    ResourceDataEntry resources[kEntry48Capacity];
    uint32_t count;
    if (FindResourceDataEntries(file, file.resource_rva(), kEntry48ResourceType, resources, &count) != 1 ||
        count != kEntry48ResourceCount)
        return kDeclined;
    const ResourceDataEntry &script = resources[0].Size < kEntry48FirstSizeBelow ? resources[0] : resources[1];
    return ReportHeader(file, FindAutoItEA06Header, script.OffsetToData, finding);
}

int Locate49(const TargetFile &file, Finding *finding) {
    for (const uint32_t type : kEntry49ResourceType) {
        ResourceDataEntry resource[1];
        uint32_t count;
        if (FindResourceDataEntries(file, file.resource_rva(), type, resource, &count) == 1 &&
            resource[0].Size >= kEntry49ResourceSize)
            return ReportHeader(file, FindAutoItEA06Header, resource[0].OffsetToData, finding);
    }
    return kDeclined;
}

int Locate45(const TargetFile &file, Finding *finding) {
    ResourceDataEntry version[1];
    uint32_t count;
    if (FindResourceDataEntries(file, file.resource_rva(), kEntry45ResourceType, version, &count) != 1 ||
        version[0].Size > kEntry45ResourceSize)
        return kDeclined;
    return ReportHeader(file, FindAutoItEA06Header, version[0].OffsetToData, finding);
}

} // namespace tavrik2
