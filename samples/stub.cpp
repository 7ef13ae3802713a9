#include "samples/stub.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <fmt/format.h>

#include "tavrik2/locators/locators.h"

namespace tavrik::samples {
namespace {

constexpr uint32_t kFirstAddress = 0x1000;
constexpr uint32_t kEntryCodeRoom = 0x40;
constexpr uint32_t kDefaultCodeSize = 0x600;
constexpr uint32_t kUnpackedDataSize = 0x9000; // of an installer's section that only exists in memory

constexpr uint32_t kUninitializedSection =
    pe::section_flag::kUninitializedData | pe::section_flag::kRead | pe::section_flag::kWrite;

// xor eax, eax; ret; then breakpoints.
constexpr uint8_t kEntryCode[ENTRY_CODE_BYTES] = {0x33, 0xC0, 0xC3, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC,
                                                  0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC};

// What is between the first and the resource section, for as many sections as a gate asks for.
constexpr const char *kMiddleNames[] = {".rdata", ".data",  ".idata", ".tls",   ".CRT",
                                        ".edata", ".didat", ".sdata", ".pdata", ".gfids"};

// Fields whose values are multiples of this where a gate allows it.
uint32_t TidyMultiple(Field field) {
    switch (field) {
    case Field::BaseOfCode:
    case Field::BaseOfData:
    case Field::ResourceVirtualAddress:
        return 0x1000;
    case Field::FirstSectionSizeOfRawData:
    case Field::LastSectionSizeOfRawData:
        return 0x200;
    case Field::AddressOfEntryPoint:
    case Field::ImportVirtualAddress:
        return 0x10;
    default:
        return 1;
    }
}

FieldValues TidyValues(const GatePath &path, const FieldValues &wanted) {
    FieldValues values = path.Pick(GatePath::Choice::Lowest, wanted);
    for (const auto &[field, set] : path.fields) {
        if (wanted.contains(field))
            continue;
        const uint64_t multiple = TidyMultiple(field);
        const uint64_t tidy = (values[field] + multiple - 1) / multiple * multiple;
        if (set.Contains(tidy))
            values[field] = tidy;
    }
    return values;
}

class StubMaker {
public:
    StubMaker(FieldValues values, const StubWishes &wishes) : values_(std::move(values)), wishes_(wishes) {}

    pe::builder::PeImage Make() {
        SetHeaders();
        ChooseSections();
        PlaceCode();
        PlaceImports();
        PlaceResources();
        ApplySectionValues();
        SetDirectories();
        return std::move(image_);
    }

private:
    std::optional<uint32_t> Get(Field field) const {
        const auto value = values_.find(field);
        return value != values_.end() ? std::optional(static_cast<uint32_t>(value->second)) : std::nullopt;
    }

    std::optional<std::string> GetName(Field field) const {
        const auto value = values_.find(field);
        if (value == values_.end())
            return std::nullopt;
        char name[sizeof value->second + 1] = {};
        std::memcpy(name, &value->second, sizeof value->second);
        return name;
    }

    // Code that begins after the first section's place is a packer's.
    bool is_packed() const { return Get(Field::BaseOfCode).value_or(0) > kFirstAddress; }
    std::size_t code_index() const { return is_packed() ? 1 : 0; }
    std::size_t last_index() const { return image_.sections.size() - 1; }
    std::size_t import_index() const { return is_packed() || last_index() == 1 ? resource_index() : 1; }
    std::size_t resource_index() const {
        for (std::size_t index = 0; index < image_.sections.size(); ++index) {
            if (image_.sections[index].name == ".rsrc")
                return index;
        }
        return last_index();
    }

    template <typename Value>
    void Set(Value &member, Field field) {
        if (const auto value = Get(field))
            member = static_cast<Value>(*value);
    }
    template <typename Value>
    void Set(std::optional<Value> &member, Field field) {
        if (const auto value = Get(field))
            member = static_cast<Value>(*value);
    }

    void SetHeaders() {
        pe::builder::Headers &headers = image_.headers;
#define SET(field) Set(headers.field, Field::field)
        SET(Characteristics);
        SET(MajorLinkerVersion);
        SET(MinorLinkerVersion);
        SET(SizeOfCode);
        SET(SizeOfInitializedData);
        SET(SizeOfUninitializedData);
        SET(AddressOfEntryPoint);
        SET(BaseOfCode);
        SET(ImageBase);
        SET(BaseOfData);
        SET(SectionAlignment);
        SET(FileAlignment);
        SET(MajorOperatingSystemVersion);
        SET(MinorOperatingSystemVersion);
        SET(MajorImageVersion);
        SET(MinorImageVersion);
        SET(MajorSubsystemVersion);
        SET(MinorSubsystemVersion);
        SET(SizeOfHeaders);
        SET(CheckSum);
        SET(Subsystem);
        SET(DllCharacteristics);
        SET(NumberOfRvaAndSizes);
#undef SET
        image_.entry_code.assign(std::begin(kEntryCode), std::end(kEntryCode));
        for (uint32_t byte = 0; byte < ENTRY_CODE_BYTES; ++byte)
            Set(image_.entry_code[byte], static_cast<Field>(static_cast<uint32_t>(Field::EntryCode0) + byte));
    }

    void ChooseSections() {
        std::vector<std::string> names = wishes_.names;
        if (names.empty()) {
            const uint32_t count = Get(Field::NumberOfSections).value_or(4);
            const bool is_upx = is_packed() && count == 3;
            names.push_back(is_upx ? "UPX0" : ".text");
            for (uint32_t index = 1; index + 1 < count; ++index)
                names.push_back(is_upx ? "UPX1" : is_packed() && index == 1 ? ".packed" : kMiddleNames[index - 1]);
            names.push_back(".rsrc");
        }
        if (const auto name = GetName(Field::FirstSectionName))
            names[*name == "UPX1" ? 1 : 0] = *name;
        if (const auto name = GetName(Field::LastSectionName))
            names.back() = *name;
        for (std::size_t index = 0; index < names.size(); ++index)
            image_.sections.push_back(UsualSection(names[index], index));
    }

    pe::builder::Section UsualSection(const std::string &name, std::size_t index) const {
        pe::builder::Section section{.name = name};
        if (index == code_index())
            section.Characteristics = is_packed() ? pe::builder::kPackedCode : pe::builder::kCodeSection;
        else if (index < code_index())
            section.Characteristics = pe::builder::kPackedHole;
        else if (name == ".data")
            section.Characteristics = pe::builder::kWritableSection;
        else if (name == ".reloc")
            section.Characteristics = pe::builder::kDiscardableSection;
        else if (name == ".ndata")
            section.Characteristics = kUninitializedSection;
        if (section.Characteristics == kUninitializedSection)
            section.VirtualSize = kUnpackedDataSize;
        else if (index > code_index())
            section.SizeOfRawData = image_.headers.FileAlignment;
        return section;
    }

    void PlaceCode() {
        const uint32_t base = Get(Field::BaseOfCode).value_or(kFirstAddress);
        pe::builder::Section &code = image_.sections[code_index()];
        code.VirtualAddress = base;
        if (is_packed())
            image_.sections[0].VirtualAddress = kFirstAddress;
        const uint32_t entry_point = Get(Field::AddressOfEntryPoint).value_or(base);
        image_.headers.AddressOfEntryPoint = entry_point;
        if (entry_point < base)
            throw std::invalid_argument(fmt::format(
                "the entry point 0x{:X} lies before the code at 0x{:X}; wish for another", entry_point, base));
        const uint32_t needed = std::max(entry_point - base + kEntryCodeRoom, kDefaultCodeSize);
        code.SizeOfRawData = base::AlignUp(needed, image_.headers.FileAlignment);
    }

    void PlaceImports() {
        pe::builder::Section &section = image_.sections[import_index()];
        const auto address = Get(Field::ImportVirtualAddress);
        const uint32_t base_of_data = Get(Field::BaseOfData).value_or(0);
        const uint32_t page = image_.headers.SectionAlignment;
        const bool is_data_next = import_index() == code_index() + 1; // to the code
        if (is_data_next && base_of_data > kFirstAddress && base_of_data % page == 0 &&
            base_of_data <= address.value_or(UINT32_MAX))
            section.VirtualAddress = base_of_data;
        else if (address)
            section.VirtualAddress = *address / page * page;
        section.SizeOfRawData.reset();
        if (Get(Field::DebugSize).value_or(0) != 0)
            section.pieces.push_back(
                {.content = base::Bytes(*Get(Field::DebugSize)), .directory = pe::kDebugDirectory});
        if (Get(Field::ExportSize).value_or(0) != 0) {
            const uint32_t code = *image_.sections[code_index()].VirtualAddress;
            section.pieces.push_back({.content = pe::builder::ExportTable{"stub.exe", {{.name = "", .rva = code}}}});
        }
        const pe::builder::ImportTable imports{
            {{"KERNEL32.dll", {"GetModuleHandleA", "LoadLibraryA", "ExitProcess"}}, {"USER32.dll", {"MessageBoxA"}}}};
        pe::builder::Piece piece{.content = imports};
        if (address)
            piece.offset = *address - *section.VirtualAddress;
        section.pieces.push_back(piece);
        // The directories may declare more than the tables need; the file contains all of it.
        const uint32_t declared =
            std::max(Get(Field::ImportSize).value_or(0), Get(Field::ImportAddressTableSize).value_or(0));
        section.pieces.push_back({.content = base::Bytes(declared)});
    }

    void PlaceResources() {
        if (Get(Field::ResourceSize) == 0u)
            return;
        pe::builder::Section &section = image_.sections[resource_index()];
        pe::builder::ResourceTable table{wishes_.resources};
        if (table.resources.empty())
            table.resources.push_back(
                {.type = pe::resource_type::kVersion,
                 .data = pe::builder::VersionInfo{.strings = {{u"FileDescription", u"Sample"}}}.Lay()});
        // Before imports in the same section, since the directory is at its start.
        const auto length = static_cast<uint32_t>(pe::builder::LayOut(table, 0).bytes.size());
        section.pieces.insert(section.pieces.begin(), pe::builder::Piece{.content = std::move(table), .offset = 0});
        section.SizeOfRawData.reset();
        if (wishes_.resource_section_size != 0)
            section.SizeOfRawData = wishes_.resource_section_size;
        if (const auto address = Get(Field::ResourceVirtualAddress))
            section.VirtualAddress = *address;
        const uint32_t declared = Get(Field::ResourceSize).value_or(0);
        if (declared > length) {
            const uint32_t raw_size = std::max(wishes_.resource_section_size, length + image_.headers.SectionAlignment);
            section.VirtualSize = base::AlignUp(std::max(declared, raw_size), image_.headers.SectionAlignment);
        }
    }

    void ApplySectionValues() {
        const bool is_hole = GetName(Field::FirstSectionName) == "UPX0";
        pe::builder::Section &first = image_.sections[is_hole ? 0 : code_index()];
        Set(first.VirtualSize, Field::FirstSectionVirtualSize);
        Set(first.SizeOfRawData, Field::FirstSectionSizeOfRawData);
        Set(first.PointerToRawData, Field::FirstSectionPointerToRawData);
        Set(first.Characteristics, Field::FirstSectionCharacteristics);
        pe::builder::Section &last = image_.sections.back();
        Set(last.SizeOfRawData, Field::LastSectionSizeOfRawData);
        Set(last.Characteristics, Field::LastSectionCharacteristics);
        if (last.VirtualSize && last.SizeOfRawData)
            last.VirtualSize = std::max(*last.VirtualSize, *last.SizeOfRawData);
    }

    void SetDirectories() {
        SetSize(pe::kExportDirectory, Field::ExportSize);
        SetSize(pe::kImportDirectory, Field::ImportSize);
        SetSize(pe::kResourceDirectory, Field::ResourceSize);
        SetSize(pe::kCertificateDirectory, Field::CertificateSize);
        SetSize(pe::kRelocationDirectory, Field::BaseRelocationSize);
        SetSize(pe::kImportAddressDirectory, Field::ImportAddressTableSize);
    }

    // A directory that declares no bytes has no address either.
    void SetSize(pe::Directory directory, Field field) {
        pe::builder::DirectoryFields &fields = image_.directories[directory];
        fields.Size = Get(field);
        if (fields.Size == 0u)
            fields.VirtualAddress = 0;
    }

    FieldValues values_;
    const StubWishes &wishes_;
    pe::builder::PeImage image_;
};

} // namespace

pe::builder::PeImage MakeStub(const GatePath &path, const StubWishes &wishes) {
    return StubMaker(TidyValues(path, wishes.values), wishes).Make();
}

pe::builder::PeImage MakeStub(uint32_t entry, const StubWishes &wishes) {
    StubWishes complete = wishes;
    if (!wishes.names.empty())
        complete.values[Field::NumberOfSections] = wishes.names.size();
    for (const GatePath &path : PathsOf(tavrik2::GateOf(entry))) {
        if ((wishes.path.empty() || path.label == wishes.path) && path.Accepts(complete.values))
            return MakeStub(path, complete);
    }
    throw std::invalid_argument(fmt::format("no path of entry {}'s gate meets the sample's wishes", entry));
}

} // namespace tavrik::samples
