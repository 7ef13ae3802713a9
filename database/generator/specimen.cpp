#include "database/generator/specimen.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "database/generator/names.h"
#include "database/generator/resources.h"
#include "pe/builder/builder.h"
#include "pe/format.h"
#include "rules/numbers.h"

namespace tavrik::generator {
namespace {

using pe::builder::Piece;
using pe::builder::Section;

constexpr uint32_t kFirstAddress = 0x1000;
constexpr uint32_t kSelectableSections = 34;
constexpr uint32_t kFarPosition = 65520; // greatest window start

namespace trait = rules::trait;

// What fills a section.
enum class Fill : uint8_t {
    Code,
    ReadOnly, // constants, texts, the imports and exports
    Data,     // texts and numbers
    Hole,     // nothing in the file
    Tls,
    Imports,
    Resources,
    Relocations,
    Packed,
    Loader, // packed data, the unpacking code and the imports
    Basic,  // a Visual Basic project
    Managed,
};

struct Shape {
    std::string_view name;
    uint32_t Characteristics;
    Fill fill;
};

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

constexpr uint8_t kStubCode[] = {0x0E, 0x1F, 0xBA, 0x0E, 0x00, 0xB4, 0x09, 0xCD, 0x21, 0xB8, 0x01, 0x4C, 0xCD, 0x21};
constexpr std::string_view kStubText = "This program cannot be run in DOS mode.\r\r\n$";
constexpr std::string_view kBorlandStubText = "This program must be run under Win32\r\n$";

class Maker {
public:
    explicit Maker(const RulePlan &plan)
        : plan_(plan), archetype_(*plan.archetype), family_random_(Mix(plan.family) ^ 0x66616D), random_(plan.seed),
          word_(FamilyWord(Mix(plan.family) ^ 0x776F7264)) {}

    Specimen Make() {
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

private:
    struct SectionMarks {
        std::size_t section;
        std::vector<Mark> marks;
    };

    bool Has(uint32_t bits) const { return (plan_.traits & bits) != 0; }

    bool Measures(uint8_t region) const {
        return std::ranges::find(plan_.measure_regions, region) != plan_.measure_regions.end();
    }

    bool ReadsStrings(uint8_t kind) const {
        return std::ranges::any_of(plan_.string_kinds,
                                   [&](uint8_t other) { return rules::ForwardKind(other) == kind; });
    }

    // ---- Headers ----

    void ChooseLinker() {
        std::vector<const Linker *> choice;
        for (const Linker &linker : kLinkers)
            if (linker.toolchain == archetype_.toolchain)
                choice.push_back(&linker);
        const Linker &linker = *family_random_.Pick(choice);
        constexpr uint8_t kDataRegion = 64; // which 64-bit headers do not name
        image_.is_pe32_plus =
            (archetype_.toolchain == Toolchain::Msvc14 || archetype_.toolchain == Toolchain::Driver) &&
            random_.Chance(35) && !Measures(kDataRegion);

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
            headers.Characteristics = static_cast<uint16_t>(
                (headers.Characteristics & ~pe::file_flag::kRelocsStripped) | pe::file_flag::kDll);
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
    void WriteStub() {
        const bool borland = archetype_.toolchain == Toolchain::Delphi || image_.headers.MinorLinkerVersion == 25;
        Content stub;
        stub.bytes.assign(std::begin(kStubCode), std::end(kStubCode));
        const std::string_view text = borland ? kBorlandStubText : kStubText;
        stub.bytes.insert(stub.bytes.end(), text.begin(), text.end());
        stub.bytes.resize(borland ? 0xC0 : 0x40);
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
            stub.bytes.insert(stub.bytes.end(), bytes.begin(), bytes.end());
        }
        image_.dos_stub = std::move(stub.bytes);
    }

    // ---- Sections ----

    void Take(std::span<const Shape> shapes) { shapes_.assign(shapes.begin(), shapes.end()); }

    void ChooseShapes() {
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
        constexpr uint8_t kRelocationRegion = 68;
        const bool wants_relocations =
            plan_.IsLibrary() || image_.headers.MajorLinkerVersion >= 12 || Measures(kRelocationRegion);
        if (wants_relocations && std::ranges::find(shapes_, Fill::Relocations, &Shape::fill) == shapes_.end())
            shapes_.push_back(kRelocationShape);
        if (plan_.many_sections)
            AddOddSections();
        if (Has(trait::kEntryInLast) || Has(trait::kExecutableLast))
            MoveLoaderToEnd();
    }

    // The same author keeps the same odd names.
    void RenamePacker() {
        if (family_random_.Chance(45))
            return;
        shapes_[0].name = family_random_.Pick(OddSectionNames());
        do
            shapes_[1].name = family_random_.Pick(OddSectionNames());
        while (shapes_[1].name == shapes_[0].name);
    }

    void AddOddSections() {
        constexpr uint32_t kCharacteristics[] = {0xC0000040, 0xE0000020, 0x40000040, 0x60000020};
        for (uint32_t i = 0; shapes_.size() < kSelectableSections; ++i) {
            const std::string_view name = OddSectionNames()[i % OddSectionNames().size()];
            shapes_.insert(shapes_.end() - 1,
                           {name, random_.Pick(kCharacteristics), i % 2 == 0 ? Fill::Packed : Fill::Data});
        }
    }

    void MoveLoaderToEnd() {
        const auto loader = std::ranges::find(shapes_, Fill::Loader, &Shape::fill);
        if (loader == shapes_.end()) {
            shapes_.push_back(kAppendedShape);
            shapes_.back().name = family_random_.Pick(OddSectionNames());
        } else {
            std::rotate(loader, loader + 1, shapes_.end());
        }
    }

    // The section that the entry point lies in: the loader's, else the code.
    std::size_t EntrySection() const {
        for (const Fill fill : {Fill::Loader, Fill::Code, Fill::Basic, Fill::Managed}) {
            const auto found = std::ranges::find(shapes_, fill, &Shape::fill);
            if (found != shapes_.end())
                return static_cast<std::size_t>(found - shapes_.begin());
        }
        return 0;
    }

    // The section that carries the imports, and with them the exports.
    std::size_t ImportSection() const {
        for (const Fill fill : {Fill::Imports, Fill::ReadOnly, Fill::Loader, Fill::Basic, Fill::Managed}) {
            const auto found = std::ranges::find(shapes_, fill, &Shape::fill);
            if (found != shapes_.end())
                return static_cast<std::size_t>(found - shapes_.begin());
        }
        return 0;
    }

    void AddTexts(Content &content, uint32_t least, uint32_t most) {
        const uint32_t count = random_.Between(least, most);
        for (uint32_t i = 0; i < count; ++i) {
            const bool is_wide = random_.Chance(15);
            content.AddText(ExpandText(random_.Pick(archetype_.texts), word_, random_), is_wide);
        }
    }

    void AddSection(const Shape &shape) {
        const std::size_t index = image_.sections.size();
        const bool is_small = plan_.many_sections;
        Section section{.name = plan_.blank_names ? std::string() : std::string(shape.name),
                        .Characteristics = shape.Characteristics,
                        .VirtualAddress = next_address_};
        if (index == EntrySection() && Has(trait::kWritableEntry))
            section.Characteristics |= pe::section_flag::kWrite;
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
        if (index == EntrySection())
            ChooseEntry(shape.fill, content);
        marks_.push_back({index, content.marks});
        if (!content.bytes.empty()) {
            Piece piece{.content = std::move(content.bytes), .offset = 0};
            if (shape.fill == Fill::Relocations)
                piece.directory = pe::kRelocationDirectory;
            section.pieces.push_back(std::move(piece));
        }
        if (index == ImportSection())
            AddTables(section);
        if (shape.fill == Fill::Resources && !resources_.table.resources.empty())
            section.pieces.push_back({.content = resources_.table});
        if (shape.fill == Fill::Resources && resources_.table.resources.empty())
            section.pieces.push_back({.content = Bytes(random_.Between(16, 48), uint8_t{0x2E})});
        image_.sections.push_back(std::move(section));
        // Where the next section stands follows from a trial of this one alone.
        pe::builder::PeImage trial;
        trial.is_pe32_plus = image_.is_pe32_plus;
        trial.sections = {image_.sections.back()};
        const SectionHeader laid = trial.Build().sections.front();
        const uint32_t virtual_size = laid.VirtualSize;
        const uint32_t raw_size = laid.SizeOfRawData;
        next_address_ = base::AlignUp(next_address_ + std::max({virtual_size, raw_size, 1U}), 0x1000);
    }

    // The text stands exactly at the position that windows can just name.
    void AddFarText(Content &content) {
        AddTexts(content, 5, 8);
        content.bytes.resize(kFarPosition);
        content.AddText(ExpandText("%f far %w %x", word_, random_), false);
    }

    void AddBasicProject(Content &content) {
        VbProject project = MakeVbProject(plan_, word_, image_base_ + next_address_, random_);
        content = std::move(project.content);
        entry_offset_ = project.entry;
        specimen_.objects = std::move(project.objects);
        AddTexts(content, 3, 6);
        content.PadTo(4);
        content.AddCode(random_.Between(0x300, 0xC00), image_base_, random_);
    }

    void AddClrHeader(Content &content) {
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

    void ChooseEntry(Fill fill, const Content &content) {
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

    void AddTables(Section &section) {
        section.pieces.push_back({.content = MakeImports()});
        constexpr uint8_t kExportRegion = 67;
        constexpr uint8_t kExportKind = 25;
        const bool exports = plan_.counts[kExportFunctions] != 0 || plan_.counts[kExportModuleNames] != 0 ||
                             Measures(kExportRegion) || ReadsStrings(kExportKind);
        if (exports || (plan_.IsLibrary() && random_.Chance(60)))
            section.pieces.push_back({.content = MakeExports()});
    }

    pe::builder::ImportTable MakeImports() {
        constexpr uint32_t kAllModules = 21;
        constexpr uint32_t kFewFunctions = 8;
        std::vector<const ModuleFunctions *> modules;
        const auto add = [&](const ModuleFunctions &module) {
            if (std::ranges::find(modules, &module) == modules.end())
                modules.push_back(&module);
        };
        for (const char letter : archetype_.modules)
            add(*std::ranges::find(Modules(), letter, &ModuleFunctions::letter));
        const uint32_t wanted = plan_.many_modules
                                    ? kAllModules
                                    : std::max(plan_.counts[kImportModules], plan_.counts[kIndexedConditions] / 5 + 1);
        while (modules.size() < wanted) {
            const ModuleFunctions &module = random_.Pick(Modules());
            constexpr std::string_view kNotForPrograms = "BTXY";
            if (kNotForPrograms.find(module.letter) == std::string_view::npos)
                add(module);
        }
        if (Has(trait::kFewImports) && modules.size() > 3)
            modules.resize(3);

        pe::builder::ImportTable table;
        uint32_t left = kFewFunctions;
        for (const ModuleFunctions *module : modules) {
            pe::builder::ImportedModule imported{SpellModule(*module), {}};
            const uint32_t available = static_cast<uint32_t>(module->functions.size());
            uint32_t count = random_.Between(std::min(3U, available), std::min(16U, available));
            count = std::max(count, std::min(plan_.counts[kImportFunctions], available));
            if (Has(trait::kFewImports)) {
                count = std::min(left - static_cast<uint32_t>(modules.size() - table.modules.size() - 1),
                                 std::min(available, 4U));
                left -= count;
            }
            std::vector<std::string_view> functions(module->functions.begin(), module->functions.end());
            random_.Shuffle(functions);
            for (uint32_t i = 0; i < count; ++i) {
                if (functions[i].front() == '#')
                    imported.functions.emplace_back(
                        static_cast<uint16_t>(std::stoi(std::string(functions[i].substr(1)))));
                else
                    imported.functions.emplace_back(std::string(functions[i]));
            }
            table.modules.push_back(std::move(imported));
        }
        return table;
    }

    // Linkers and authors differ in how they write the kernel's name.
    std::string SpellModule(const ModuleFunctions &module) {
        constexpr char kKernel = 'A';
        if (module.letter != kKernel)
            return std::string(module.name);
        if (plan_.kernel_name)
            return "KERNEL32.dll";
        return archetype_.toolchain == Toolchain::Packer || archetype_.toolchain == Toolchain::MinGw ? "KERNEL32.DLL"
                                                                                                     : "kernel32.dll";
    }

    pe::builder::ExportTable MakeExports() {
        pe::builder::ExportTable table;
        table.module_name =
            random_.Chance(50) ? std::string(random_.Pick(ExportModules())) : SmallWord(random_) + ".dll";
        const uint32_t count = std::max(plan_.counts[kExportFunctions], random_.Between(1, 5));
        std::set<std::string> names;
        while (names.size() < count)
            names.insert(random_.Chance(75) ? std::string(random_.Pick(ExportNames())) : FamilyWord(random_.Next()));
        for (const std::string &name : names)
            table.functions.push_back({.name = name, .rva = kFirstAddress + random_.Below(0x300U)});
        specimen_.export_module = table.module_name;
        specimen_.exports.assign(names.begin(), names.end());
        random_.Shuffle(specimen_.exports);
        return table;
    }

    void AddOverlay() {
        constexpr uint8_t kOverlayRegion = 74;
        constexpr uint8_t kOverlayKind = 5;
        if (!Has(trait::kOverlay) && !Measures(kOverlayRegion) && !ReadsStrings(kOverlayKind) && !random_.Chance(4))
            return;
        AddTexts(overlay_, 4, 7);
        overlay_.PadTo(4);
        overlay_.AddPacked(random_.Between(0x180, 0xC00), random_);
        image_.overlay = overlay_.bytes;
    }

    // ---- What the builder leaves open ----

    template <typename Value>
    void Patch(std::size_t offset, Value value) {
        std::memcpy(specimen_.image.data() + offset, &value, sizeof value);
    }

    void SetDirectory(uint32_t directory, uint32_t rva, uint32_t size) {
        uint32_t headers = 0;
        std::memcpy(&headers, specimen_.image.data() + pe::kLfanewOffset, sizeof headers);
        const uint32_t place = headers + pe::kOptionalHeaderOffset +
                               pe::OptionalFieldOffset(pe::optional_header::kDirectories, image_.is_pe32_plus) +
                               pe::kDirectorySize * directory;
        Patch(place, rva);
        Patch(place + 4, size);
    }

    void Finish(const pe::builder::PeFile &file) {
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
    void CutShort() {
        constexpr uint32_t kDamaged = 128;
        if ((archetype_.target & kDamaged) != 0 && overlay_.bytes.empty() && shapes_.back().fill == Fill::Data)
            specimen_.image.resize(specimen_.image.size() - random_.Between(0x30, 0xA0));
    }

    void SetTls(const pe::builder::PeFile &file) {
        constexpr uint8_t kTlsRegion = 69;
        std::size_t section = file.sections.size();
        for (std::size_t i = 0; i < shapes_.size(); ++i)
            if (shapes_[i].fill == Fill::Tls)
                section = i;
        if (section == file.sections.size() && (Measures(kTlsRegion) || random_.Chance(6))) {
            section = EntrySection();
        }
        if (section != file.sections.size())
            SetDirectory(pe::kTlsDirectory, file.sections[section].VirtualAddress + 0x10, pe::kTlsDirectorySize);
    }

    // Linkers write how much of a section is used; the raw size is rounded up.
    void ShrinkSections(const pe::builder::PeFile &file) {
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

    const RulePlan &plan_;
    const Archetype &archetype_;
    Random family_random_; // the same for all rules of a family
    Random random_;        // this rule's own
    std::string word_;     // of the family
    std::vector<Shape> shapes_;
    PlannedResources resources_;
    pe::builder::PeImage image_;
    uint32_t image_base_ = 0;
    uint32_t next_address_ = kFirstAddress;
    uint32_t loader_code_ = 0;  // into the loader's section
    uint32_t entry_offset_ = 0; // into the entry point's section
    uint32_t clr_header_ = 0;   // RVA
    std::vector<SectionMarks> marks_;
    Content overlay_;
    Specimen specimen_;
};

} // namespace

Specimen MakeSpecimen(const RulePlan &plan) {
    return Maker(plan).Make();
}

} // namespace tavrik::generator
