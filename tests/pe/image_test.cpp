// The headers of a PE file: every field of either layout, the ends of what counts, and the way from addresses to the
// file; what the builder makes of them; the numbers of the format.
#include <cstring>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/byte_source.h"
#include "base/system.h"
#include "pe/builder/builder.h"
#include "pe/image.h"
#include "rules/names.h"
#include "tests/support/fresh_folder.h"
#include "tests/support/golden_lines.h"

namespace tavrik::tests {
namespace {

using base::Bytes;
using pe::builder::PeImage;

/** A parsed file that owns its bytes. */
struct Parsed {
    explicit Parsed(Bytes file) : bytes(std::move(file)) {}
    Bytes bytes;
    base::MemorySource source{bytes};
    base::FileBytes reader{source};
    pe::Image image{reader};
};

std::optional<uint32_t> Field(const pe::Image &image, const char *name) {
    const rules::Field &field = *rules::FindField(rules::HeaderFields(), std::string_view(name));
    switch (field.origin) {
    case rules::Origin::DosHeader:
        return image.DosField(field.offset, field.width);
    case rules::Origin::FileHeader:
        return image.FileField(field.offset, field.width);
    default:
        return image.OptionalField(field.offset, field.width);
    }
}

/** An image whose every header field has a value of its own. */
PeImage Distinct(bool is_pe32_plus) {
    PeImage image;
    image.is_pe32_plus = is_pe32_plus;
    image.dos_header = {0x5A4D, 0x101, 0x102, 0x103};
    pe::builder::Headers &headers = image.headers;
    headers.Machine = 0x1234;
    headers.TimeDateStamp = 0x11121314;
    headers.PointerToSymbolTable = 0x21222324;
    headers.NumberOfSymbols = 0x31323334;
    headers.Characteristics = 0x4142;
    headers.MajorLinkerVersion = 0x51;
    headers.MinorLinkerVersion = 0x52;
    headers.SizeOfCode = 0x01020304;
    headers.SizeOfInitializedData = 0x01020305;
    headers.SizeOfUninitializedData = 0x01020306;
    headers.AddressOfEntryPoint = 0x01020307;
    headers.BaseOfCode = 0x01020308;
    headers.BaseOfData = 0x01020309;
    headers.ImageBase = is_pe32_plus ? uint64_t{0x0102030C'0102030A} : 0x0102030A;
    headers.MajorOperatingSystemVersion = 0x61;
    headers.MinorOperatingSystemVersion = 0x62;
    headers.MajorImageVersion = 0x63;
    headers.MinorImageVersion = 0x64;
    headers.MajorSubsystemVersion = 0x65;
    headers.MinorSubsystemVersion = 0x66;
    headers.Win32VersionValue = 0x67;
    headers.SizeOfImage = 0x01020310;
    headers.CheckSum = 0x01020311;
    headers.Subsystem = 0x71;
    headers.DllCharacteristics = 0x72;
    headers.SizeOfStackReserve = 0x01020312;
    headers.SizeOfStackCommit = 0x01020313;
    headers.SizeOfHeapReserve = 0x01020314;
    headers.SizeOfHeapCommit = 0x01020315;
    headers.LoaderFlags = 0x01020316;
    for (uint32_t index = 0; index < pe::kDirectoryCount; ++index)
        image.directories[index] = {.VirtualAddress = 0x2000 + index, .Size = 0x3000 + index};
    image.sections = {{.name = ".text", .pieces = {{Bytes(0x40, 0x90)}}}};
    return image;
}

TEST(Image, ReadsEveryFieldOfEitherLayout) {
    for (const bool plus : {false, true}) {
        SCOPED_TRACE(plus);
        const Parsed file(Distinct(plus).Build().bytes);
        const std::pair<const char *, uint32_t> fields[] = {{"e_cblp", 0x101},
                                                            {"e_cp", 0x102},
                                                            {"Machine", 0x1234},
                                                            {"NumberOfSections", 1},
                                                            {"TimeDateStamp", 0x11121314},
                                                            {"PointerToSymbolTable", 0x21222324},
                                                            {"NumberOfSymbols", 0x31323334},
                                                            {"SizeOfOptionalHeader", plus ? 240 : 224},
                                                            {"Characteristics", 0x4142},
                                                            {"Magic", plus ? 0x20B : 0x10B},
                                                            {"MajorLinkerVersion", 0x51},
                                                            {"MinorLinkerVersion", 0x52},
                                                            {"SizeOfCode", 0x01020304},
                                                            {"SizeOfInitializedData", 0x01020305},
                                                            {"SizeOfUninitializedData", 0x01020306},
                                                            {"AddressOfEntryPoint", 0x01020307},
                                                            {"BaseOfCode", 0x01020308},
                                                            {"ImageBase", 0x0102030A},
                                                            {"SectionAlignment", 0x1000},
                                                            {"FileAlignment", 0x200},
                                                            {"MajorOperatingSystemVersion", 0x61},
                                                            {"MinorOperatingSystemVersion", 0x62},
                                                            {"MajorImageVersion", 0x63},
                                                            {"MinorImageVersion", 0x64},
                                                            {"MajorSubsystemVersion", 0x65},
                                                            {"MinorSubsystemVersion", 0x66},
                                                            {"Win32VersionValue", 0x67},
                                                            {"SizeOfImage", 0x01020310},
                                                            {"SizeOfHeaders", 0x200},
                                                            {"CheckSum", 0x01020311},
                                                            {"Subsystem", 0x71},
                                                            {"DllCharacteristics", 0x72},
                                                            {"SizeOfStackReserve", 0x01020312},
                                                            {"SizeOfStackCommit", 0x01020313},
                                                            {"SizeOfHeapReserve", 0x01020314},
                                                            {"SizeOfHeapCommit", 0x01020315},
                                                            {"LoaderFlags", 0x01020316},
                                                            {"NumberOfRvaAndSizes", 16},
                                                            {"ExportTable.VirtualAddress", 0x2000},
                                                            {"ExportTable.Size", 0x3000},
                                                            {"TLSTable.VirtualAddress", 0x2009},
                                                            {"CLRRuntimeHeader.Size", 0x300E}};
        for (const auto &[name, value] : fields)
            EXPECT_EQ(Field(file.image, name), value) << name;
        EXPECT_EQ(Field(file.image, "BaseOfData"), plus ? std::nullopt : std::optional(0x01020309u));
        EXPECT_EQ(file.image.ImageBaseHigh(), plus ? std::optional(0x0102030Cu) : std::nullopt);
        EXPECT_EQ(file.image.IsPe32Plus(), plus);
        EXPECT_EQ(file.image.ImageBase(), 0x0102030Au);
        EXPECT_EQ(file.image.AddressOfEntryPoint(), 0x01020307u);
        EXPECT_EQ(file.image.DirectoryRva(pe::kTlsDirectory), 0x2009u);
        EXPECT_EQ(file.image.sections().size(), 1u);
    }
}

/** The file with another number of `width` bytes at an offset from the PE signature. */
Bytes With(Bytes file, uint32_t offset, uint32_t value, std::size_t width) {
    uint32_t signature = 0;
    std::memcpy(&signature, &file[pe::kLfanewOffset], sizeof(signature));
    std::memcpy(&file.at(signature + offset), &value, width);
    return file;
}

TEST(Image, HasFieldsAsFarAsTheHeaderGoes) {
    for (const bool plus : {false, true}) {
        const Bytes whole = Distinct(plus).Build().bytes;
        const uint32_t end_of_low_part = 0x1C + 4; // of ImageBase, in either layout
        for (const uint32_t size : {0u, 1u, 2u, end_of_low_part - 1, end_of_low_part, plus ? 112u : 96u, 0xFFFFu}) {
            SCOPED_TRACE(testing::Message() << plus << ' ' << size);
            const Parsed file(With(whole, 20, size, 2));
            EXPECT_TRUE(file.image.IsPe());
            EXPECT_EQ(Field(file.image, "Magic").has_value(), size >= 2);
            EXPECT_EQ(file.image.IsPe32Plus(), plus && size >= 2);
            EXPECT_EQ(Field(file.image, "ImageBase").has_value(), size >= (plus ? 0x1Cu : end_of_low_part));
            EXPECT_EQ(file.image.ImageBaseHigh().has_value(), plus && size >= end_of_low_part);
            EXPECT_EQ(Field(file.image, "NumberOfRvaAndSizes").has_value(), size >= (plus ? 112 : 96));
            EXPECT_EQ(file.image.DirectoryRva(pe::kExportDirectory).has_value(), size == 0xFFFF);
        }
        for (const uint32_t count : {0u, 1u, 14u, 15u, 0xFFFFFFFFu}) {
            const Parsed file(With(whole, 24 + (plus ? 108 : 92), count, 4));
            EXPECT_EQ(file.image.DirectoryRva(pe::kExportDirectory).has_value(), count > 0) << count;
            EXPECT_EQ(file.image.DirectoryRva(pe::kClrDirectory).has_value(), count > 14) << count;
        }
    }
    const Bytes small = Distinct(false).Build().bytes;
    EXPECT_FALSE(Parsed(With(small, 24 + 96, 0, 4)).image.DirectoryRva(pe::kExportDirectory)) << "an address of 0";
    EXPECT_FALSE(Field(Parsed(With(small, 24, 0x107, 2)).image, "SizeOfCode")) << "a magic of neither layout";
    EXPECT_EQ(Field(Parsed(With(small, 24, 0x107, 2)).image, "Magic"), 0x107u);
    EXPECT_FALSE(Parsed(With(small, 0, 0x4551, 4)).image.HasSignature());
    Bytes other = small;
    other[1] = 'N';
    EXPECT_FALSE(Parsed(other).image.HasDosHeader());
    EXPECT_FALSE(Parsed(other).image.IsPe() || Field(Parsed(other).image, "e_cp") ||
                 Field(Parsed(other).image, "Machine"));
}

TEST(Image, CountsSectionsWithinTheFileAndTheBound) {
    PeImage image = Distinct(false);
    image.sections.clear();
    Bytes file = image.Build().bytes;
    uint32_t signature = 0;
    std::memcpy(&signature, &file[pe::kLfanewOffset], sizeof(signature));
    const std::size_t table = signature + 24 + 224;
    file.resize(table + 513 * sizeof(SectionHeader));
    for (const uint32_t count : {0u, 1u, 511u, 512u, 513u, 0xFFFFu})
        EXPECT_EQ(Parsed(With(file, 6, count, 2)).image.sections().size(), std::min(count, 512u)) << count;
    file = With(file, 6, 3, 2);
    for (const std::size_t bytes : {0u, 39u, 40u, 119u, 120u})
        EXPECT_EQ(Parsed(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(table + bytes)))
                      .image.sections()
                      .size(),
                  bytes / 40)
            << bytes;
}

TEST(Image, MapsAddressesBySections) {
    PeImage image;
    image.headers.ImageBase = 0x10000000;
    image.headers.AddressOfEntryPoint = 0x1000;
    image.sections = {{.name = "virtual",
                       .VirtualSize = 0x900,
                       .VirtualAddress = 0x1000,
                       .SizeOfRawData = 0x200,
                       .PointerToRawData = 0x400,
                       .pieces = {{Bytes(0x200, 1)}}},
                      {.name = "raw",
                       .VirtualSize = 0x10,
                       .VirtualAddress = 0x2000,
                       .SizeOfRawData = 0x400,
                       .PointerToRawData = 0x600,
                       .pieces = {{Bytes(0x400, 2)}}},
                      {.name = "hole", .VirtualSize = 0x1000, .VirtualAddress = 0x3000, .SizeOfRawData = 0}};
    const Bytes bytes = image.Build().bytes;
    const Parsed file(bytes);
    const struct {
        uint32_t rva;
        std::optional<std::size_t> section;
        std::optional<uint64_t> offset;
    } rows[] = {{0, {}, 0},         {0x3FF, {}, {}},    {0x1FF, {}, 0x1FF},  {0x200, {}, {}},  {0xFFF, {}, {}},
                {0x1000, 0, 0x400}, {0x11FF, 0, 0x5FF}, {0x1200, 0, {}},     {0x18FF, 0, {}},  {0x1900, {}, {}},
                {0x2000, 1, 0x600}, {0x200F, 1, 0x60F}, {0x23FF, 1, 0x9FF},  {0x2400, {}, {}}, {0x3000, 2, {}},
                {0x3FFF, 2, {}},    {0x4000, {}, {}},   {0xFFFFFFFF, {}, {}}};
    for (const auto &row : rows) {
        EXPECT_EQ(file.image.SectionHolding(row.rva), row.section) << row.rva;
        EXPECT_EQ(file.image.OffsetOfRva(row.rva), row.offset) << row.rva;
        EXPECT_EQ(file.image.OffsetOfAddress(0x10000000 + row.rva), row.offset) << row.rva;
    }
    EXPECT_FALSE(file.image.OffsetOfAddress(0x0FFFFFFF));
    EXPECT_FALSE(file.image.OffsetOfAddress(0x1000));
    EXPECT_EQ(file.image.RawData(0), (base::Region{0x400, 0x200}));
    // The raw data of the second section is cut, and then away.
    const Parsed cut(Bytes(bytes.begin(), bytes.begin() + 0x610));
    EXPECT_EQ(cut.image.RawData(1), (base::Region{0x600, 0x10}));
    EXPECT_EQ(cut.image.OffsetOfRva(0x200F), 0x60Fu);
    EXPECT_FALSE(cut.image.OffsetOfRva(0x2010));
    const Parsed away(Bytes(bytes.begin(), bytes.begin() + 0x600));
    EXPECT_TRUE(away.image.RawData(1).IsAbsent());
    EXPECT_FALSE(away.image.OffsetOfRva(0x2000));
}

// ---- The builder ---------------------------------------------------------------------------------------------------

/** Code, data before a hole in the addresses, what is not in the file, and a last section. */
PeImage Open() {
    PeImage image;
    image.entry_code = {0xC3, 0xCC};
    image.sections = {
        {.name = ".text", .Characteristics = pe::builder::kCodeSection, .pieces = {{Bytes(0x210, 0x90)}}},
        {.name = ".data",
         .Characteristics = pe::builder::kWritableSection,
         .VirtualAddress = 0x9000,
         .pieces = {{Bytes(5, 1)}, {Bytes(0x11, 2)}, {Bytes(1, 3), 0x40}}},
        {.name = ".bss", .Characteristics = pe::builder::kPackedHole, .VirtualSize = 0x1800, .SizeOfRawData = 0},
        {.name = "last", .pieces = {{Bytes(1, 4)}}}};
    image.overlay = {9};
    return image;
}

TEST(PeBuilder, ComputesWhatIsLeftOpen) {
    PeImage image = Open();
    image.sections[2].VirtualAddress = 0xF000; // and left open after all
    image.sections[2].VirtualAddress.reset();
    pe::builder::PeFile file = image.Build();
    const struct {
        uint32_t virtual_size, address, raw_size, offset;
    } rows[] = {{0x8000, 0x1000, 0x400, 0x400},
                {0x200, 0x9000, 0x200, 0x800},
                {0x1800, 0xA000, 0, 0},
                {0x200, 0xC000, 0x200, 0xA00}};
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(file.sections[i].VirtualSize + 0, rows[i].virtual_size) << i;
        EXPECT_EQ(file.sections[i].VirtualAddress + 0, rows[i].address) << i;
        EXPECT_EQ(file.sections[i].SizeOfRawData + 0, rows[i].raw_size) << i;
        EXPECT_EQ(file.sections[i].PointerToRawData + 0, rows[i].offset) << i;
    }
    const Parsed parsed(file.bytes);
    for (const auto &[name, value] : {std::pair("SizeOfImage", 0xD000u),
                                      {"SizeOfHeaders", 0x400u},
                                      {"SizeOfCode", 0x400u},
                                      {"SizeOfInitializedData", 0x400u},
                                      {"SizeOfUninitializedData", 0x1800u},
                                      {"AddressOfEntryPoint", 0x1000u},
                                      {"BaseOfCode", 0x1000u},
                                      {"BaseOfData", 0x9000u},
                                      {"NumberOfSections", 4u},
                                      {"Machine", 0x14Cu}})
        EXPECT_EQ(Field(parsed.image, name), value) << name;
    EXPECT_EQ(file.size(), 0xC01u);
    EXPECT_EQ(file.bytes[0xC00], 9);
    for (const auto &[offset, byte] : {std::pair(0x400, 0xC3),
                                       {0x401, 0xCC},
                                       {0x402, 0x90},
                                       {0x60F, 0x90},
                                       {0x610, 0},
                                       {0x804, 1},
                                       {0x805, 0},
                                       {0x810, 2},
                                       {0x820, 2},
                                       {0x821, 0},
                                       {0x840, 3}})
        EXPECT_EQ(file.bytes[static_cast<std::size_t>(offset)], byte) << offset;
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&file.bytes[0x4E]), 39),
              "This program cannot be run in DOS mode.");

    EXPECT_EQ(&file.SectionNamed("last"), &file.sections[3]);
    EXPECT_EQ(file.RawEnd(1), 0xA00u);
    EXPECT_EQ(file.OffsetOf(0x91FF), 0x9FFu);
    EXPECT_THROW(file.OffsetOf(0x9200), std::out_of_range);
    EXPECT_THROW(file.SectionNamed("lost"), std::out_of_range);
    file.Plant(0xC10, {7, 8});
    EXPECT_EQ(file.size(), 0xC12u);
    EXPECT_EQ(file.bytes[0xC11], 8);
    EXPECT_THROW(file.Plant(0xC0F, {7, 8}), std::invalid_argument);
    EXPECT_NO_THROW(file.Plant(0xC0F, {7}));
}

TEST(PeBuilder, RefusesWhatContradictsItself) {
    using Change = void (*)(PeImage &);
    const std::pair<Change, const char *> rows[] = {
        {[](PeImage &i) { i.headers.FileAlignment = 0; }, "SectionAlignment and FileAlignment must not be 0"},
        {[](PeImage &i) { i.headers.SectionAlignment = 0; }, "SectionAlignment and FileAlignment must not be 0"},
        {[](PeImage &i) { i.headers.SizeOfHeaders = 0x217; },
         "SizeOfHeaders is 0x217, but the headers take 0x218 bytes"},
        {[](PeImage &i) { i.headers.SizeOfHeaders = 0x218; }, ""},
        {[](PeImage &i) { i.sections[0].name = "12345678"; }, ""},
        {[](PeImage &i) { i.sections[0].name = "123456789"; },
         "section name \"123456789\" is longer than 8 characters"},
        {[](PeImage &i) { i.sections[1].VirtualAddress = 0x1FFF; },
         "section 1 \".data\" begins at address 0x1FFF, inside what ends at 0x2000"},
        {[](PeImage &i) { i.sections[1].VirtualAddress = 0x2000; }, ""},
        {[](PeImage &i) { i.sections[1].SizeOfRawData = 0x40; },
         "section 1 \".data\" holds 0x41 bytes, more than its SizeOfRawData 0x40"},
        {[](PeImage &i) { i.sections[1].SizeOfRawData = 0x41; }, ""},
        {[](PeImage &i) { i.sections[1].PointerToRawData = 0x7FF; },
         "section 1 \".data\" begins at file offset 0x7FF, inside what ends at 0x800"},
        {[](PeImage &i) { i.sections[1].pieces[2].offset = 0x20; },
         "in section 1 \".data\" the piece at 0x20 is placed upon one that ends at 0x21"},
        {[](PeImage &i) { i.sections[1].pieces[2].offset = 0x21; }, ""},
        {[](PeImage &i) { i.headers.AddressOfEntryPoint = 0x13FE; }, ""},
        {[](PeImage &i) { i.headers.AddressOfEntryPoint = 0x13FF; },
         "the entry code runs past the raw data of its section"},
        {[](PeImage &i) { i.headers.AddressOfEntryPoint = 0x1400; },
         "AddressOfEntryPoint 0x1400 lies in no section's raw data"},
        {[](PeImage &i) { i.headers.AddressOfEntryPoint = 0xFFF; },
         "AddressOfEntryPoint 0xFFF lies in no section's raw data"}};
    for (const auto &[change, refusal] : rows) {
        PeImage image = Open();
        change(image);
        std::string said;
        try {
            image.Build();
        } catch (const std::invalid_argument &error) {
            said = error.what();
        }
        EXPECT_EQ(said, refusal);
    }
}

// ---- The format ----------------------------------------------------------------------------------------------------

TEST(PeFormat, NumbersAreThoseThatWereTyped) {
    std::map<std::string, std::string> compiled;
    std::string scope;
    static const std::regex kConstant("\\b(k\\w+)(?:\\[\\])? = (\\w+|u\"\\w+\")(?=[,; ])");
    static const std::regex kNamespace("(?:namespace (\\w+) \\{|\\} // namespace.*)");
    std::istringstream source(ReadFile(base::ProgramFolder() / "golden" / "format.h"));
    for (std::string line; std::getline(source, line);) {
        if (std::smatch found; std::regex_match(line, found, kNamespace))
            scope = found[1].matched ? found[1].str() + "." : "";
        for (std::sregex_iterator found(line.begin(), line.end(), kConstant), end; found != end; ++found)
            compiled[scope + (*found)[1].str()] = (*found)[2];
    }
    std::map<std::string, std::string> typed;
    for (const GoldenLine &line : ReadGolden("pe_format.txt"))
        typed[line.words[0]] = line.words[1];
    const auto number = [](const std::string &text) {
        return IsGoldenNumber(text) ? std::to_string(GoldenNumber(text)) : text;
    };
    for (const auto &[name, value] : compiled)
        EXPECT_EQ(number(value), number(typed[name])) << name;
    EXPECT_EQ(compiled.size(), typed.size());
}

} // namespace
} // namespace tavrik::tests
