#include "database/generator/specimen.h"

#include <algorithm>
#include <cstddef>

#include "database/generator/specimen_maker.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

namespace trait = rules::trait;

// What a linker writes into the headers.
struct Linker {
    Toolchain toolchain;
    uint8_t major;
    uint8_t minor;
    uint16_t program_characteristics;
    uint16_t system_version;
};
constexpr Linker kLinkers[] = {
    {Toolchain::Msvc6, 6, 0, 0x10F, 4},      {Toolchain::Msvc9, 9, 0, 0x102, 5},
    {Toolchain::Msvc9, 8, 0, 0x103, 4},      {Toolchain::Msvc14, 14, 0, 0x102, 6},
    {Toolchain::Msvc14, 12, 0, 0x122, 6},    {Toolchain::Delphi, 2, 25, 0x818E, 4},
    {Toolchain::Delphi, 2, 25, 0x818F, 4},   {Toolchain::MinGw, 2, 56, 0x10F, 4},
    {Toolchain::MinGw, 2, 22, 0x307, 4},     {Toolchain::VisualBasic, 6, 0, 0x10F, 4},
    {Toolchain::Packer, 6, 0, 0x10F, 4},     {Toolchain::Packer, 7, 10, 0x103, 4},
    {Toolchain::Packer, 2, 25, 0x818F, 4},   {Toolchain::Protector, 6, 0, 0x10F, 4},
    {Toolchain::Protector, 5, 12, 0x10E, 4}, {Toolchain::Driver, 7, 10, 0x10E, 5},
    {Toolchain::Managed, 8, 0, 0x10E, 4},    {Toolchain::Managed, 11, 0, 0x102, 4},
};

constexpr std::string_view kBorlandStubText = "This program must be run under Win32\r\n$";

} // namespace

Specimen SpecimenMaker::Make() {
    ChooseLinker();
    ChooseShapes();
    WriteStub();
    resources_ = MakeResources(plan_, word_, random_);
    for (const Shape &shape : shapes_)
        AddSection(shape);
    AddOverlay();
    const pe::builder::PeFile file = image_.Build();
    specimen_.image = file.bytes;
    Finish(file);
    specimen_.resource_strings = std::move(resources_.strings);
    specimen_.resource_types = std::move(resources_.types);
    return std::move(specimen_);
}

void SpecimenMaker::ChooseLinker() {
    std::vector<const Linker *> choice;
    for (const Linker &linker : kLinkers)
        if (linker.toolchain == archetype_.toolchain)
            choice.push_back(&linker);
    const Linker &linker = *family_random_.Pick(choice);
    // 64-bit headers do not name the data.
    image_.is_pe32_plus = (archetype_.toolchain == Toolchain::Msvc14 || archetype_.toolchain == Toolchain::Driver) &&
                          random_.Chance(35) && !Measures(rules::SectionRole::Data);

    pe::builder::Headers &headers = image_.headers;
    headers.MajorLinkerVersion = linker.major;
    headers.MinorLinkerVersion = linker.minor;
    headers.Characteristics = linker.program_characteristics;
    headers.TimeDateStamp = archetype_.toolchain == Toolchain::Delphi && random_.Chance(60)
                                ? 0x2A425E19 // which this linker always writes
                                : random_.Between(0x38000000, 0x52000000);
    headers.MajorOperatingSystemVersion = headers.MajorSubsystemVersion = linker.system_version;
    headers.MajorImageVersion = family_random_.Chance(80) ? 0 : static_cast<uint16_t>(random_.Below(8U));
    headers.MinorImageVersion = family_random_.Chance(80) ? 0 : static_cast<uint16_t>(random_.Below(80U));
    headers.Subsystem = family_random_.Chance(12) ? 3 : 2;
    headers.ImageBase = 0x400000;
    if (archetype_.toolchain == Toolchain::MinGw && random_.Chance(50))
        headers.SizeOfStackReserve = 0x200000;
    if (archetype_.toolchain == Toolchain::Delphi || archetype_.toolchain == Toolchain::MinGw)
        headers.SizeOfStackCommit = 0x4000;
    if (linker.system_version >= 6)
        headers.DllCharacteristics = 0x8140;
    if (plan_.IsLibrary()) {
        headers.Characteristics =
            static_cast<uint16_t>((headers.Characteristics & ~pe::file_flag::kRelocsStripped) | pe::file_flag::kDll);
        headers.ImageBase = family_random_.Chance(70) ? 0x10000000 : 0x400000;
    }
    if (image_.is_pe32_plus) {
        headers.Characteristics = static_cast<uint16_t>((headers.Characteristics & ~pe::file_flag::k32BitMachine) |
                                                        pe::file_flag::kLargeAddressAware);
        headers.ImageBase = random_.Chance(50) ? 0x180000000 : 0x140000000;
    }
    if (archetype_.toolchain == Toolchain::Driver) {
        headers.Subsystem = 1;
        headers.ImageBase = 0x10000;
        headers.SizeOfStackReserve = 0x40000;
    }
    if (random_.Chance(archetype_.toolchain == Toolchain::Driver ? 100 : 15))
        headers.CheckSum = random_.Between(0x8000, 0x3FFFF);
    image_base_ = static_cast<uint32_t>(headers.ImageBase);
}

// Code and text of the stub, then the linker's record of the tools.
void SpecimenMaker::WriteStub() {
    const bool borland = archetype_.toolchain == Toolchain::Delphi || image_.headers.MinorLinkerVersion == 25;
    Bytes stub = pe::builder::MakeDosStub(borland ? kBorlandStubText : pe::builder::kUsualDosStubText);
    stub.resize(borland ? 0xC0 : 0x40);
    if (!borland && archetype_.toolchain != Toolchain::MinGw && archetype_.toolchain != Toolchain::Managed) {
        const uint32_t key = random_.Next32();
        base::ByteWriter rich;
        rich.U32(pe::rich::kStartMark ^ key);
        for (int i = 0; i < 3; ++i)
            rich.U32(key);
        const uint32_t entries = family_random_.Between(2, 8);
        for (uint32_t i = 0; i < entries; ++i) {
            const uint32_t tool = family_random_.Below(0x100U);
            rich.U32((tool << 16 | family_random_.Between(0x1000, 0x7FFF)) ^ key);
            rich.U32(random_.Between(1, 90) ^ key);
        }
        rich.U32(pe::rich::kEndMark);
        rich.U32(key);
        rich.Align(16);
        const Bytes bytes = rich.Take();
        stub.insert(stub.end(), bytes.begin(), bytes.end());
    }
    image_.dos_stub = std::move(stub);
}

void SpecimenMaker::AddOverlay() {
    if (!Has(trait::kOverlay) && !Measures(rules::MeasureRegion::Overlay) &&
        !ReadsStrings(rules::StringKind::Overlay) && !random_.Chance(4))
        return;
    AddTexts(overlay_, 4, 7);
    overlay_.PadTo(4);
    overlay_.AddPacked(random_.Between(0x180, 0xC00), random_);
    image_.overlay = overlay_.bytes;
}

void SpecimenMaker::SetDirectory(uint32_t directory, uint32_t rva, uint32_t size) {
    uint32_t headers = 0;
    std::memcpy(&headers, specimen_.image.data() + pe::kLfanewOffset, sizeof headers);
    const uint32_t place = headers + pe::kOptionalHeaderOffset +
                           pe::OptionalFieldOffset(pe::optional_header::kDirectories, image_.is_pe32_plus) +
                           pe::kDirectorySize * directory;
    Patch(place, rva);
    Patch(place + 4, size);
}

void SpecimenMaker::Finish(const pe::builder::PeFile &file) {
    if (archetype_.toolchain == Toolchain::Delphi) { // this linker's own DOS header
        constexpr uint16_t kWords[] = {pe::kDosSignature, 0x50, 2, 0, 4, 0xF, 0xFFFF, 0, 0xB8, 0, 0, 0, 0x40, 0x1A};
        for (std::size_t i = 0; i < std::size(kWords); ++i)
            Patch(2 * i, kWords[i]);
    }
    if (clr_header_ != 0)
        SetDirectory(pe::kClrDirectory, clr_header_, pe::kClrHeaderSize);
    SetTls(file);
    ShrinkSections(file);
    CutShort();
    for (const SectionMarks &section : marks_)
        for (Mark mark : section.marks) {
            mark.offset += file.sections[section.section].PointerToRawData;
            specimen_.marks.push_back(mark);
        }
    const auto overlay = static_cast<uint32_t>(file.bytes.size() - overlay_.bytes.size());
    for (Mark mark : overlay_.marks) {
        mark.offset += overlay;
        specimen_.marks.push_back(mark);
    }
    std::erase_if(specimen_.marks, [&](const Mark &mark) {
        return mark.offset + (mark.is_wide ? 2 : 1) * mark.length > specimen_.image.size();
    });
}

// A file that was not written to its end.
void SpecimenMaker::CutShort() {
    constexpr uint32_t kDamaged = 128;
    if ((archetype_.target & kDamaged) != 0 && overlay_.bytes.empty() && shapes_.back().fill == Fill::Data)
        specimen_.image.resize(specimen_.image.size() - random_.Between(0x30, 0xA0));
}

void SpecimenMaker::SetTls(const pe::builder::PeFile &file) {
    std::size_t section = file.sections.size();
    for (std::size_t i = 0; i < shapes_.size(); ++i)
        if (shapes_[i].fill == Fill::Tls)
            section = i;
    if (section == file.sections.size() && (Measures(rules::SectionRole::Tls) || random_.Chance(6))) {
        section = EntrySection();
    }
    if (section != file.sections.size())
        SetDirectory(pe::kTlsDirectory, file.sections[section].VirtualAddress + 0x10, pe::kTlsDirectorySize);
}

// Linkers write how much of a section is used; the raw size is rounded up.
void SpecimenMaker::ShrinkSections(const pe::builder::PeFile &file) {
    constexpr uint32_t kSlack = 0x1A0;
    uint32_t headers = 0;
    std::memcpy(&headers, specimen_.image.data() + pe::kLfanewOffset, sizeof headers);
    const uint32_t table = headers + pe::kOptionalHeaderOffset + pe::WholeOptionalHeaderSize(image_.is_pe32_plus);
    for (std::size_t i = 0; i < file.sections.size(); ++i) {
        const uint32_t raw_size = file.sections[i].SizeOfRawData;
        if (raw_size == 0 || archetype_.toolchain == Toolchain::Packer)
            continue;
        const auto place =
            table + static_cast<uint32_t>(sizeof(SectionHeader) * i + offsetof(SectionHeader, VirtualSize));
        const uint32_t room = base::AlignUp(raw_size, 0x1000);
        Patch(place,
              shapes_[i].fill == Fill::Data ? random_.Between(raw_size, room) : raw_size - random_.Below(kSlack));
    }
}

Specimen MakeSpecimen(const RulePlan &plan) {
    return SpecimenMaker(plan).Make();
}

} // namespace tavrik::generator
