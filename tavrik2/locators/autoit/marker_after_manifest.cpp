// AutoIt wrappers whose script lies behind the application manifest (entries 25 and 26).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tavrik2/pe/byte_pattern.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows25 = gate(
    is(Characteristics, 0x123),
    is(NumberOfSections, 2),
    in(MajorSubsystemVersion, 4, 7),
    is(MajorImageVersion, 0),
    in(SizeOfCode, 0x7B000, 0x80000),
    in(AddressOfEntryPoint, 0x10000, 0x60000),
    is(FileAlignment, 0x200),
    is(SizeOfHeaders, 0x400),
    is(DllCharacteristics, 0x8000),
    in(ImportSize, 0x80, 0xF0),
    is(entry_code(0), 0xB8),
    is(entry_code(4), 0x00),
    is(entry_code(5), 0x50),
    is(entry_code(6), 0x64),
    is(entry_code(12), 0x00),
    is(entry_code(13), 0x64),
    is(entry_code(20), 0x33),
    is(entry_code(21), 0xC0),
    name_ignoring_case(first_section::Name, ".text"),
    name_ignoring_case(last_section::Name, ".rsrc"));

constexpr auto kRows26 = gate(
    is(Characteristics, 0x123),
    in(NumberOfSections, 4, 6),
    in(MajorSubsystemVersion, 4, 5),
    at_most(MajorImageVersion, 10),
    in(SizeOfCode, 0x50000, 0xC7800),
    in(AddressOfEntryPoint, 0x10000, 0x60000),
    is(FileAlignment, 0x200),
    is(SizeOfHeaders, 0x400),
    is(DllCharacteristics, 0x8000),
    in(ImportSize, 0x118, 0x154),
    in(ResourceVirtualAddress, 0x80000, 0xAB000),
    is(entry_code(0), 0xE8),
    is(entry_code(4), 0x00),
    is(entry_code(5), 0xE9),
    is(entry_code(9), 0xFF));
// clang-format on

constexpr uint32_t kScanLength = 24576;
constexpr int32_t kMarkerWordSize = 4;

// What the manifest's text must contain; no terminator.
constexpr char kEntry25Text[] = "level=\"requireAdministrator\"";
constexpr char kEntry26Text[] = "name=\"AutoIt3\"";

// How far behind the manifest entry 25's script lies depends on the file's size; the first row that fits decides.
struct SizeRow {
    int32_t lowest_size;
    int32_t highest_size;
    uint32_t distance;
};
constexpr SizeRow kEntry25Distances[] = {
    {0x1800001, 0x28FFFFF, 0x26000},
    {0x3F0001, 0x40FFFF, 0x5F000},
    {0x300001, 0x4FFFFF, 0x16B000},
};

// The places behind the manifest at which entry 26 looks for the script, in this order.
constexpr uint32_t kEntry26Distances[] = {0, 0x5B000};

using ScanBlock = uint8_t[kScanLength];

// Finds the only manifest of the resource directory at `resource_rva` and moves the stream to its text. Returns false
// unless there is exactly one; else its file offset and the file offset just past it.
bool FindManifest(const TargetFile &file, uint32_t resource_rva, uint32_t *start, uint32_t *end) {
    ResourceDataEntry manifests[5];
    uint32_t count;
    if (FindResourceDataEntries(file, resource_rva, kManifestResource, manifests, &count) != 1 || count != 1)
        return false;
    *start = file.OffsetOf(manifests[0].OffsetToData);
    *end = *start + manifests[0].Size;
    // A manifest at the very end of the file passes here and fails to be read.
    return AsSigned(*start) >= 1 && AsSigned(*start) <= file.file_size && file.SeekExactly(*start);
}

// Reads a whole block from where the stream stands and looks for the text in it.
template <uint32_t Size>
bool ReadsText(const TargetFile &file, ScanBlock &block, const char (&text)[Size]) {
    return file.ReadCleared(block) == kScanLength &&
           FindBytePattern(block, kScanLength, reinterpret_cast<const uint8_t *>(text),
                           static_cast<int32_t>(Size - 1)) >= 0;
}

// The marker word's first position among `length` bytes, or -1; the last possible position is not looked at.
int32_t FindMarkerWord(const ScanBlock &block, uint32_t length) {
    const int32_t end = static_cast<int32_t>(length < kScanLength ? length : kScanLength) - kMarkerWordSize;
    for (int32_t place = 0; place < end; ++place) {
        if (LoadU32(block + place) == kAutoItMarkerWord)
            return place;
    }
    return -1;
}

int ReportMarkerWord(uint32_t base, int32_t place, Finding *finding) {
    return place < 0 ? kDeclined : Report(finding, base + AsOffset(place), kHeaderSize);
}

} // namespace

constinit const GateView kGate25 = kRows25;
constinit const GateView kGate26 = kRows26;

int Locate25(const TargetFile &file, Finding *finding) {
    // The walk starts at the last section, not at the resource directory.
    uint32_t manifest;
    uint32_t manifest_end;
    ScanBlock block;
    if (!FindManifest(file, file.last_section->VirtualAddress, &manifest, &manifest_end) ||
        !ReadsText(file, block, kEntry25Text))
        return kDeclined;
    for (const SizeRow &row : kEntry25Distances) {
        if (file.file_size < row.lowest_size || file.file_size > row.highest_size)
            continue;
        const uint32_t base = manifest_end + row.distance;
        if (!file.IsInFile(base, 1) || !file.ReadBlockAt(base, block))
            return kDeclined;
        return ReportMarkerWord(base, FindMarkerWord(block, kScanLength), finding);
    }
    return kDeclined;
}

int Locate26(const TargetFile &file, Finding *finding) {
    uint32_t manifest;
    uint32_t manifest_end;
    ScanBlock block;
    if (!FindManifest(file, file.resource_rva(), &manifest, &manifest_end) || !ReadsText(file, block, kEntry26Text))
        return kDeclined;
    for (const uint32_t distance : kEntry26Distances) {
        const uint32_t base = manifest_end + distance;
        if (!file.IsInFile(base, 1) || !file.SeekExactly(base))
            return kDeclined;
        const uint32_t length = file.ReadCleared(block);
        if (length < kMarkerWordSize)
            return kDeclined;
        const int32_t place = FindMarkerWord(block, length);
        // Behind a block that fell short there is no second one.
        if (place >= 0 || length < kScanLength)
            return ReportMarkerWord(base, place, finding);
    }
    return kDeclined;
}

} // namespace tavrik2
