#include <algorithm>

#include "database/generator/specimen_maker.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using pe::builder::Piece;
using pe::builder::Section;
namespace trait = rules::trait;

constexpr uint32_t kSelectableSections = rules::kMaxSectionIndex + 1;

constexpr Shape kMsvcShapes[] = {{".text", 0x60000020, Fill::Code},
                                 {".rdata", 0x40000040, Fill::ReadOnly},
                                 {".data", 0xC0000040, Fill::Data},
                                 {".rsrc", 0x40000040, Fill::Resources}};
constexpr Shape kDelphiShapes[] = {{"CODE", 0x60000020, Fill::Code},          {"DATA", 0xC0000040, Fill::Data},
                                   {"BSS", 0xC0000000, Fill::Hole},           {".idata", 0xC0000040, Fill::Imports},
                                   {".tls", 0xC0000000, Fill::Hole},          {".rdata", 0x50000040, Fill::Tls},
                                   {".reloc", 0x50000040, Fill::Relocations}, {".rsrc", 0x50000040, Fill::Resources}};
constexpr Shape kMinGwShapes[] = {{".text", 0x60000020, Fill::Code},     {".data", 0xC0000040, Fill::Data},
                                  {".rdata", 0x40000040, Fill::Data},    {".bss", 0xC0000080, Fill::Hole},
                                  {".idata", 0xC0000040, Fill::Imports}, {".rsrc", 0xC0000040, Fill::Resources}};
constexpr Shape kBasicShapes[] = {
    {".text", 0x60000020, Fill::Basic}, {".data", 0xC0000040, Fill::Data}, {".rsrc", 0x40000040, Fill::Resources}};
constexpr Shape kPackerShapes[] = {
    {"UPX0", 0xE0000080, Fill::Hole}, {"UPX1", 0xE0000040, Fill::Loader}, {".rsrc", 0xC0000040, Fill::Resources}};
constexpr Shape kProtectorShapes[] = {{".text", 0xE0000020, Fill::Packed},   {".rdata", 0xC0000040, Fill::Packed},
                                      {".data", 0xC0000040, Fill::Packed},   {".rsrc", 0xC0000040, Fill::Resources},
                                      {".aspack", 0xE0000020, Fill::Loader}, {".adata", 0xC0000040, Fill::Data}};
constexpr Shape kDriverShapes[] = {{".text", 0x68000020, Fill::Code},      {".rdata", 0x48000040, Fill::Data},
                                   {".data", 0xC8000040, Fill::Data},      {"INIT", 0xE2000020, Fill::Imports},
                                   {".rsrc", 0x42000040, Fill::Resources}, {".reloc", 0x42000040, Fill::Relocations}};
constexpr Shape kManagedShapes[] = {{".text", 0x60000020, Fill::Managed},
                                    {".rsrc", 0x40000040, Fill::Resources},
                                    {".reloc", 0x42000040, Fill::Relocations}};
constexpr Shape kRelocationShape = {".reloc", 0x42000040, Fill::Relocations};
constexpr Shape kAppendedShape = {".boom", 0xE0000020, Fill::Loader};

} // namespace

void SpecimenMaker::ChooseShapes() {
    switch (archetype_.toolchain) {
    case Toolchain::Delphi:
        Take(kDelphiShapes);
        break;
    case Toolchain::MinGw:
        Take(kMinGwShapes);
        break;
    case Toolchain::VisualBasic:
        Take(kBasicShapes);
        break;
    case Toolchain::Packer:
        Take(kPackerShapes);
        RenamePacker();
        break;
    case Toolchain::Protector:
        Take(kProtectorShapes);
        shapes_[4].name = family_random_.Pick(OddSectionNames());
        break;
    case Toolchain::Driver:
        Take(kDriverShapes);
        break;
    case Toolchain::Managed:
        Take(kManagedShapes);
        break;
    default:
        Take(kMsvcShapes);
        break;
    }
    const bool wants_relocations =
        plan_.IsLibrary() || image_.headers.MajorLinkerVersion >= 12 || Measures(rules::SectionRole::Relocation);
    if (wants_relocations && std::ranges::find(shapes_, Fill::Relocations, &Shape::fill) == shapes_.end())
        shapes_.push_back(kRelocationShape);
    if (plan_.many_sections)
        AddOddSections();
    if (Has(trait::kEntryInLast) || Has(trait::kExecutableLast))
        MoveLoaderToEnd();
}

// The same author keeps the same odd names.
void SpecimenMaker::RenamePacker() {
    if (family_random_.Chance(45))
        return;
    shapes_[0].name = family_random_.Pick(OddSectionNames());
    do
        shapes_[1].name = family_random_.Pick(OddSectionNames());
    while (shapes_[1].name == shapes_[0].name);
}

void SpecimenMaker::AddOddSections() {
    constexpr uint32_t kCharacteristics[] = {0xC0000040, 0xE0000020, 0x40000040, 0x60000020};
    for (uint32_t i = 0; shapes_.size() < kSelectableSections; ++i) {
        const std::string_view name = OddSectionNames()[i % OddSectionNames().size()];
        shapes_.insert(shapes_.end() - 1,
                       {name, random_.Pick(kCharacteristics), i % 2 == 0 ? Fill::Packed : Fill::Data});
    }
}

void SpecimenMaker::MoveLoaderToEnd() {
    const auto loader = std::ranges::find(shapes_, Fill::Loader, &Shape::fill);
    if (loader == shapes_.end()) {
        shapes_.push_back(kAppendedShape);
        shapes_.back().name = family_random_.Pick(OddSectionNames());
    } else {
        std::rotate(loader, loader + 1, shapes_.end());
    }
}

// The section that the entry point lies in: the loader's, else the code.
std::size_t SpecimenMaker::EntrySection() const {
    for (const Fill fill : {Fill::Loader, Fill::Code, Fill::Basic, Fill::Managed}) {
        const auto found = std::ranges::find(shapes_, fill, &Shape::fill);
        if (found != shapes_.end())
            return static_cast<std::size_t>(found - shapes_.begin());
    }
    return 0;
}

// The section that carries the imports, and with them the exports.
std::size_t SpecimenMaker::ImportSection() const {
    for (const Fill fill : {Fill::Imports, Fill::ReadOnly, Fill::Loader, Fill::Basic, Fill::Managed}) {
        const auto found = std::ranges::find(shapes_, fill, &Shape::fill);
        if (found != shapes_.end())
            return static_cast<std::size_t>(found - shapes_.begin());
    }
    return 0;
}

void SpecimenMaker::AddTexts(Content &content, uint32_t least, uint32_t most) {
    const uint32_t count = random_.Between(least, most);
    for (uint32_t i = 0; i < count; ++i) {
        const bool is_wide = random_.Chance(15);
        content.AddText(ExpandText(random_.Pick(archetype_.texts), word_, random_), is_wide);
    }
}

void SpecimenMaker::AddSection(const Shape &shape) {
    const std::size_t index = image_.sections.size();
    Section section{.name = plan_.blank_names ? std::string() : std::string(shape.name),
                    .Characteristics = shape.Characteristics,
                    .VirtualAddress = next_address_};
    if (index == EntrySection() && Has(trait::kWritableEntry))
        section.Characteristics |= pe::section_flag::kWrite;
    Content content = ContentOf(shape, section);
    if (index == EntrySection())
        ChooseEntry(shape.fill, content);
    marks_.push_back({index, content.marks});
    AddPieces(shape.fill, std::move(content.bytes), section);
    image_.sections.push_back(std::move(section));
    AdvanceAddress();
}

// What fills a section; for a hole its sizes instead.
Content SpecimenMaker::ContentOf(const Shape &shape, Section &section) {
    const bool is_small = plan_.many_sections;
    Content content;
    switch (shape.fill) {
    case Fill::Code:
        content.AddCode(random_.Between(0x380, is_small ? 0x600 : 0x1400), image_base_, random_);
        break;
    case Fill::ReadOnly:
        content.AddNumbers(random_.Between(8, 60), random_);
        AddTexts(content, 3, 6);
        break;
    case Fill::Data:
        if (plan_.far_string && shape.name == ".data")
            AddFarText(content);
        else
            AddTexts(content, is_small ? 3 : 5, is_small ? 5 : 11);
        content.AddNumbers(random_.Between(16, 90), random_);
        break;
    case Fill::Hole:
        section.VirtualSize = random_.Between(0x400, 0x7FFF);
        section.SizeOfRawData = 0;
        break;
    case Fill::Tls:
        content.AddNumbers(6, random_);
        break;
    case Fill::Imports:
    case Fill::Resources:
        break;
    case Fill::Relocations:
        content.AddNumbers(2 * random_.Between(10, 60), random_);
        break;
    case Fill::Packed:
        content.AddPacked(random_.Between(is_small ? 0x180 : 0x500, is_small ? 0x3C0 : 0x1800), random_);
        break;
    case Fill::Loader:
        content.AddPacked(random_.Between(0x500, is_small ? 0x800 : 0x1C00), random_);
        content.PadTo(4);
        loader_code_ = content.size();
        content.AddCode(random_.Between(0x160, 0x2C0), image_base_, random_);
        AddTexts(content, 2, 3);
        break;
    case Fill::Basic:
        AddBasicProject(content);
        break;
    case Fill::Managed:
        AddClrHeader(content);
        break;
    }
    return content;
}

void SpecimenMaker::AddPieces(Fill fill, Bytes bytes, Section &section) {
    if (!bytes.empty()) {
        Piece piece{.content = std::move(bytes), .offset = 0};
        if (fill == Fill::Relocations)
            piece.directory = pe::kRelocationDirectory;
        section.pieces.push_back(std::move(piece));
    }
    if (image_.sections.size() == ImportSection())
        AddTables(section);
    if (fill == Fill::Resources && !resources_.table.resources.empty())
        section.pieces.push_back({.content = resources_.table});
    if (fill == Fill::Resources && resources_.table.resources.empty())
        section.pieces.push_back({.content = Bytes(random_.Between(16, 48), uint8_t{0x2E})});
}

void SpecimenMaker::AdvanceAddress() {
    // Where the next section is follows from a trial of this one alone.
    pe::builder::PeImage trial;
    trial.is_pe32_plus = image_.is_pe32_plus;
    trial.sections = {image_.sections.back()};
    const SectionHeader laid = trial.Build().sections.front();
    const uint32_t virtual_size = laid.VirtualSize;
    const uint32_t raw_size = laid.SizeOfRawData;
    next_address_ = base::AlignUp(next_address_ + std::max({virtual_size, raw_size, 1U}), 0x1000);
}

// The text is exactly at the last position that windows can name.
void SpecimenMaker::AddFarText(Content &content) {
    AddTexts(content, 5, 8);
    content.bytes.resize(kFarPosition);
    content.AddText(ExpandText("%f far %w %x", word_, random_), false);
}

void SpecimenMaker::AddBasicProject(Content &content) {
    VbProject project = MakeVbProject(plan_, word_, image_base_ + next_address_, random_);
    content = std::move(project.content);
    entry_offset_ = project.entry;
    specimen_.objects = std::move(project.objects);
    AddTexts(content, 3, 6);
    content.PadTo(4);
    content.AddCode(random_.Between(0x300, 0xC00), image_base_, random_);
}

void SpecimenMaker::AddClrHeader(Content &content) {
    base::ByteWriter header;
    header.U32(pe::kClrHeaderSize);
    header.U32(random_.Chance(70) ? 0x50002 : 0x20002); // runtime version
    header.U32(next_address_ + 0x200);
    header.U32(random_.Between(0x400, 0xC00));
    header.U32(random_.Chance(70) ? 1 : 3); // flags
    header.FillTo(pe::kClrHeaderSize);
    content.bytes = header.Take();
    clr_header_ = next_address_;
    content.AddCode(random_.Between(0x300, 0x900), image_base_, random_);
    AddTexts(content, 5, 9);
}

void SpecimenMaker::ChooseEntry(Fill fill, const Content &content) {
    if (fill == Fill::Loader) {
        entry_offset_ = loader_code_;
    } else if (fill != Fill::Basic && !content.marks.empty()) {
        std::vector<uint32_t> starts;
        for (const Mark &mark : content.marks)
            if (!mark.is_text && mark.offset + 0x40 < content.size())
                starts.push_back(mark.offset);
        entry_offset_ = random_.Pick(starts);
    }
    image_.headers.AddressOfEntryPoint = next_address_ + entry_offset_;
}

} // namespace tavrik::generator
