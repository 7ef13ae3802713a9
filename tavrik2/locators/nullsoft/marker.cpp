// Installer stubs with NullsoftMarker in one block at a computed offset (entries 11, 35, 36, 41, 42 and 44).

#include "tavrik2/lifecycle/platform.h"
#include "tavrik2/locators/locators.h"
#include "tavrik2/locators/nullsoft/marker_block.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/pe/section_flags.h"

namespace tavrik2 {

using namespace fields;
using namespace gates;

namespace {

// clang-format off
constexpr auto kRows11 = gate(
    is(NumberOfSections, 5),
    is(Characteristics, 0x10F),
    is(MajorLinkerVersion, 6),
    in(SizeOfCode, 0x5000, 0x7000),
    in(ImportSize, 0xA0, 0xC0),
    in(ResourceSize, 0x4000, 0x8000),
    in(last_section::SizeOfRawData, 0x2000, 0x40000),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".rsrc"));

constexpr auto kRows35 = gate(
    is(NumberOfSections, 3),
    is(Characteristics, 0x10F),
    is(MajorLinkerVersion, 7),
    in(SizeOfCode, 0x4000, 0x6000),
    is(SizeOfUninitializedData, 0),
    in(ImportSize, 0x20, 0x40),
    is(ResourceSize, 0),
    in(ImportAddressTableSize, 0xC0, 0xE0),
    in(last_section::SizeOfRawData, 0x400, 0x1000),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemWrite | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".data"));

constexpr auto kRows36 = gate(
    is(NumberOfSections, 5),
    is(Characteristics, 0x10F),
    is(MajorLinkerVersion, 6),
    in(SizeOfCode, 0x5000, 0x7000),
    in(ImportSize, 0xA0, 0xC0),
    in(ResourceSize, 0xD000, 0xFF00),
    in(last_section::SizeOfRawData, 0xD000, 0xFF00),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemWrite | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".rsrc"));

constexpr auto kRows41 = gate(
    is(NumberOfSections, 6),
    is(Characteristics, 0x102),
    is(MajorLinkerVersion, 10),
    in(SizeOfCode, 0x7000, 0x8000),
    in(SizeOfUninitializedData, 0x4000, 0x5000),
    in(ImportSize, 0xB0, 0xC0),
    in(ImportAddressTableSize, 0x200, 0x400),
    in(last_section::SizeOfRawData, 0x1000, 0x4000),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemDiscardable | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".reloc"));

constexpr auto kRows42 = gate(
    is(NumberOfSections, 6),
    is(Characteristics, 0x102),
    is(MajorLinkerVersion, 10),
    in(SizeOfCode, 0x7000, 0x8000),
    in(SizeOfUninitializedData, 0x4000, 0x5000),
    in(ImportSize, 0xB0, 0xC0),
    one_of(ResourceSize, {{0x5000, 0x8000}, {0x5B000, 0x5D000}}),
    in(ImportAddressTableSize, 0x200, 0x400),
    in(last_section::SizeOfRawData, 0xA00, 0x2000),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemDiscardable | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".reloc"));

constexpr auto kRows44 = gate(
    is(NumberOfSections, 6),
    is(Characteristics, 0x102),
    is(MajorLinkerVersion, 10),
    is(MinorLinkerVersion, 0),
    in(SizeOfCode, 0x6F00, 0x7A00),
    is(SizeOfUninitializedData, 0x4200),
    is(FileAlignment, 0x200),
    in(ImportSize, 0xB0, 0xC0),
    at_least(ResourceSize, 0x1A000),
    in(ImportAddressTableSize, 0x2A0, 0x300),
    in(last_section::SizeOfRawData, 0x1000, 0x3500),
    is(first_section::Characteristics, kMemReadExecute | kCntCode),
    is(last_section::Characteristics, kMemRead | kMemDiscardable | kCntInitializedData),
    name(first_section::Name, ".text"),
    name(last_section::Name, ".reloc"));
// clang-format on

// A block borrowed from the platform module for one call.
class BorrowedBlock {
public:
    explicit BorrowedBlock(uint32_t length) : bytes_(static_cast<uint8_t *>(PlatformAlloc(length, 0, 0))) {}
    ~BorrowedBlock() {
        if (bytes_ != nullptr)
            PlatformFree(bytes_);
    }
    BorrowedBlock(const BorrowedBlock &) = delete;
    BorrowedBlock &operator=(const BorrowedBlock &) = delete;

    uint8_t *bytes() const { return bytes_; }

private:
    uint8_t *bytes_;
};

// For a stream at `block_start`: the block is given back before the finding is written.
int SearchBorrowedBlock(const TargetFile &file, uint32_t block_start, uint32_t length, Finding *finding) {
    int32_t place;
    {
        const BorrowedBlock block(length);
        if (block.bytes() == nullptr)
            return kDeclined;
        place = FindMarker(file, block.bytes(), length);
    }
    return ReportMarker(block_start, place, finding);
}

} // namespace

constinit const GateView kGate11 = kRows11;
constinit const GateView kGate35 = kRows35;
constinit const GateView kGate36 = kRows36;
constinit const GateView kGate41 = kRows41;
constinit const GateView kGate42 = kRows42;
constinit const GateView kGate44 = kRows44;

int Locate11(const TargetFile &file, Finding *finding) {
    const uint32_t block_start = file.last_section->PointerToRawData + kEntry11Distance;
    if (!file.IsInFile(block_start, 0) || !file.SeekExactly(block_start))
        return kDeclined;
    return SearchBorrowedBlock(file, block_start, kEntry11Read, finding);
}

int Locate35(const TargetFile &file, Finding *finding) {
    SectionHeader section2;
    if (!file.ReadSectionHeader(kEntry35SectionIndex, &section2))
        return kDeclined;
    const uint32_t block_start = file.last_section->SizeOfRawData + RawDataEnd(section2);
    if (!file.IsInFile(block_start, 0))
        return kDeclined;
    // This build takes its block before it moves the stream.
    int32_t place;
    {
        const BorrowedBlock block(kEntry35Read);
        if (block.bytes() == nullptr || !file.SeekExactly(block_start))
            return kDeclined;
        place = FindMarker(file, block.bytes(), kEntry35Read);
    }
    return ReportMarker(block_start, place, finding);
}

int Locate36(const TargetFile &file, Finding *finding) {
    SectionHeader section2;
    if (!file.ReadSectionHeader(kEntry36SectionIndex, &section2))
        return kDeclined;
    const uint32_t block_start = file.last_section->SizeOfRawData + RawDataEnd(section2) + kEntry36Distance;
    if (!file.IsInFile(block_start, 1) || !file.SeekExactly(block_start))
        return kDeclined;
    return SearchBorrowedBlock(file, block_start, kEntry36Read, finding);
}

int Locate41(const TargetFile &file, Finding *finding) {
    // The block lies inside the last section; it is not compared with the file's size.
    const uint32_t block_start = RawDataEnd(*file.last_section) + kEntry41Distance;
    if (AsSigned(block_start) < AsSigned(file.last_section->PointerToRawData))
        return kDeclined;
    return SearchOwnBlock<kEntry41Read>(file, block_start, finding);
}

int Locate42(const TargetFile &file, Finding *finding) {
    SectionHeader section4;
    if (!file.ReadSectionHeader(kEntry42SectionIndex, &section4))
        return kDeclined;
    const uint32_t block_start = file.last_section->SizeOfRawData + RawDataEnd(section4);
    return file.IsInFile(block_start, 0) ? SearchOwnBlock<kEntry42Read>(file, block_start, finding) : kDeclined;
}

int Locate44(const TargetFile &file, Finding *finding) {
    const uint32_t block_start = RawDataEnd(*file.last_section) + kEntry44Distance;
    return file.IsInFile(block_start, 0) ? SearchOwnBlock<kEntry44Read>(file, block_start, finding) : kDeclined;
}

} // namespace tavrik2
