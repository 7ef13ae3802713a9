// AutoIt wrappers whose script is after the application manifest (entries 25 and 26).

#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
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

constexpr int32_t kMarkerWordSize = 4;

using ScanBlock = uint8_t[kEntry25Read];
constexpr uint32_t kScanLength = sizeof(ScanBlock);

// Finds the only manifest of the resource directory at `resource_rva` and moves the stream to its text. Returns false
// unless there is exactly one; else its file offset and the file offset just past it.
bool FindManifest(const TargetFile &file, uint32_t resource_rva, uint32_t *start, uint32_t *end) {
    ResourceDataEntry manifests[kEntry25Capacity];
    uint32_t count;
    if (FindResourceDataEntries(file, resource_rva, kEntry25ResourceType, manifests, &count) != 1 ||
        count != kEntry25ResourceCount)
        return false;
    *start = file.OffsetOf(manifests[0].OffsetToData);
    *end = *start + manifests[0].Size;
    // A manifest at the very end of the file passes here and fails to be read.
    return AsSigned(*start) >= 1 && AsSigned(*start) <= file.file_size && file.SeekExactly(*start);
}

// Reads a whole block from the stream's position and looks for the text in it.
template <uint32_t Size>
bool ReadsText(const TargetFile &file, ScanBlock &block, const uint8_t (&text)[Size]) {
    return file.ReadCleared(block) == kScanLength && FindBytePattern(block, kScanLength, text) >= 0;
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
        !ReadsText(file, block, Entry25ManifestText))
        return kDeclined;
    for (const DistanceBySize &row : kEntry25DistanceBySize) {
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
    if (!FindManifest(file, file.resource_rva(), &manifest, &manifest_end) ||
        !ReadsText(file, block, Entry26ManifestText))
        return kDeclined;
    for (const uint32_t distance : kEntry26Distance) {
        const uint32_t base = manifest_end + distance;
        if (!file.IsInFile(base, 1) || !file.SeekExactly(base))
            return kDeclined;
        const uint32_t length = file.ReadCleared(block);
        if (length < kMarkerWordSize)
            return kDeclined;
        const int32_t place = FindMarkerWord(block, length);
        // After a block that fell short there is no second one.
        if (place >= 0 || length < kScanLength)
            return ReportMarkerWord(base, place, finding);
    }
    return kDeclined;
}

} // namespace tavrik2
