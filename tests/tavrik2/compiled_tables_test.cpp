// The tables that the module is compiled from beside those that were typed apart from them.
#include <cstring>
#include <map>
#include <span>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "scanner/locator_info.h"
#include "tavrik2/locators/autoit/offset_tables.h"
#include "tavrik2/locators/markers.h"
#include "tavrik2/locators/places.h"
#include "tavrik2/tavrik2.h"
#include "tests/support/golden.h"
#include "tests/support/recording_stream.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

// ---- Offset tables -------------------------------------------------------------------------------------------------

std::string RowText(const OffsetProbeRow &row) {
    constexpr const char *kAnchors[] = {"EndOfFile", "LastSectionStart", "LastSectionEnd", "NamedSectionStart",
                                        "NamedSectionEnd"};
    constexpr const char *kDirections[] = {"At", "After", "Before"};
    const std::string name(row.section_name, strnlen(row.section_name, sizeof row.section_name));
    return fmt::format("{:#x} {:#x} {:#x} {} {} {} {:#x}", row.code_size, row.init_data_size, row.resource_rva,
                       kAnchors[row.anchor], kDirections[row.direction], name.empty() ? "-" : '"' + name + '"',
                       row.distance);
}

std::string RowText(const GoldenLine &line) {
    const auto number = [&](std::size_t word) { return GoldenNumber(line.words.at(word)); };
    return fmt::format("{:#x} {:#x} {:#x} {} {} {} {:#x}", number(1), number(2), number(3), line.words.at(4),
                       line.words.at(5), line.words.at(6), number(7));
}

TEST(CompiledTables, OffsetTables) {
    const std::pair<const char *, std::span<const OffsetProbeRow>> tables[] = {{"offset_table_28.txt", kOffsets28},
                                                                               {"offset_table_29.txt", kOffsets29}};
    for (const auto &[file, rows] : tables) {
        const std::vector<GoldenLine> typed = ReadGolden(file);
        ASSERT_EQ(rows.size(), typed.size()) << file;
        for (std::size_t index = 0; index < typed.size(); ++index)
            EXPECT_EQ(RowText(rows[index]), RowText(typed[index])) << file << " row " << index;
    }
}

// ---- Markers -------------------------------------------------------------------------------------------------------

std::string Hexadecimal(const uint8_t *bytes, std::size_t length) {
    return fmt::format("{:02X}", fmt::join(bytes, bytes + length, " "));
}

// "owner name" of each typed marker, with its bytes.
std::map<std::string, std::string> TypedMarkers() {
    std::map<std::string, std::string> markers;
    for (const GoldenLine &line : ReadGolden("markers.txt")) {
        std::string bytes;
        for (std::size_t word = 2; word < line.words.size() && line.words[word][0] != '+'; ++word)
            bytes += (word == 2 ? "" : " ") + line.words[word];
        markers[line.words[0] + " " + line.words[1]] = bytes;
    }
    return markers;
}

TEST(CompiledTables, Markers) {
    std::map<std::string, std::string> typed = TypedMarkers();
    const auto check = [&](const std::string &name, const uint8_t *bytes, std::size_t length) {
        EXPECT_EQ(Hexadecimal(bytes, length), typed[name]) << name;
        typed.erase(name);
    };
    const auto check_all = [&](std::initializer_list<const char *> names, const uint8_t *bytes, std::size_t length) {
        for (const char *name : names)
            check(name, bytes, length);
    };
    check_all({"FindAutoItScript ea05_AutoItMarker", "13 AutoItMarker", "14 AutoItMarker", "15 AutoItMarker"},
              AutoItMarker, 16);
    check("FindAutoItSignature prefix", AutoItMarker, kFindAutoItSignaturePrefixLength);
    check_all(
        {"12 AutoIt_word", "23 AutoIt_word", "25 AutoIt_word", "26 AutoIt_word", "28 AutoIt_word", "29 AutoIt_word"},
        AutoItMarker, 4);
    check("FindAutoItScript ea05_tag", AutoItTagEA05, sizeof AutoItTagEA05);
    check("FindAutoItScript ea06_tag", AutoItTagEA06, sizeof AutoItTagEA06);
    check("FindAutoItSignature tag_AU3", AutoItTagEA05, 4);
    check("FindAutoItSignature tag_EA", AutoItTagEA05 + 4, 2);
    check("FindAutoItEA06Header tag_EA06", AutoItShortTagEA06, sizeof AutoItShortTagEA06);
    check_all({"FindAutoItScript ea06_PatternA", "FindAutoItEA06Header PatternA"}, AutoItEA06PatternA,
              sizeof AutoItEA06PatternA);
    check("FindAutoItScript ea06_PatternB", AutoItEA06PatternB, sizeof AutoItEA06PatternB);
    check("0 variant_marker", Entry0Marker, sizeof Entry0Marker);
    check("5 variant_marker", Entry5Marker, sizeof Entry5Marker);
    check("25 manifest_text", Entry25ManifestText, sizeof Entry25ManifestText);
    check("26 manifest_text", Entry26ManifestText, sizeof Entry26ManifestText);
    for (std::size_t index = 0; index < std::size(AutoItAltMarkers); ++index)
        check(fmt::format("FindAutoItSignature alternative_{}", index + 1), AutoItAltMarkers[index], 16);
    for (std::size_t index = 0; index < std::size(AlteredAutoItHeaders); ++index)
        check(fmt::format("FindAlteredAutoItHeader row_{}", index + 1), AlteredAutoItHeaders[index], 32);
    check("28 altered_word", AlteredAutoItHeaders[3], 4);
    check_all({"7 Nullsoft_words", "8 Nullsoft_words", "9 Nullsoft_words", "10 Nullsoft_words"}, NullsoftMarker,
              kNullsoftWordsLength);
    for (const int entry : {11, 35, 36, 40, 41, 42, 44})
        check(fmt::format("{} NullsoftMarker", entry), NullsoftMarker, sizeof NullsoftMarker);
    check("38 CabinetMarker", CabinetMarker, sizeof CabinetMarker);
    check("39 RarMarker", RarMarker, sizeof RarMarker);
    typed.erase("8 section_4_name"); // the locator's own
    EXPECT_TRUE(typed.empty()) << fmt::format("{}", typed);
}

// ---- The locator table ---------------------------------------------------------------------------------------------

TEST(CompiledTables, KindsOfTheLocatorTable) {
    for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry)
        for (const GoldenLine &line : GoldenBlock("searches.txt", fmt::format("entry {}", entry)))
            if (line.words[0] == "kind") {
                EXPECT_EQ(scanner::kLocatorInfo[entry].kind + 0, GoldenNumber(line.words[1])) << entry;
            }
}

// ---- Structures ----------------------------------------------------------------------------------------------------

#define PARENS ()
#define EXPAND(...) EXPAND3(EXPAND3(EXPAND3(EXPAND3(__VA_ARGS__))))
#define EXPAND3(...) EXPAND2(EXPAND2(EXPAND2(EXPAND2(__VA_ARGS__))))
#define EXPAND2(...) EXPAND1(EXPAND1(EXPAND1(EXPAND1(__VA_ARGS__))))
#define EXPAND1(...) __VA_ARGS__
#define FOR_EACH(macro, type, ...) EXPAND(FOR_EACH_STEP(macro, type, __VA_ARGS__))
#define FOR_EACH_STEP(macro, type, first, ...)                                                                         \
    macro(type, first) __VA_OPT__(FOR_EACH_AGAIN PARENS(macro, type, __VA_ARGS__))
#define FOR_EACH_AGAIN() FOR_EACH_STEP

// "byte width field" of the fields of a structure; what is always zero has a name without its byte.
using Layout = std::vector<std::string>;
#define ADD_FIELD(type, field)                                                                                         \
    layout.push_back(fmt::format("{} {} {}", offsetof(type, field), sizeof(type::field),                               \
                                 std::string_view(#field).starts_with("zero") ? "zero" : #field));
#define LAYOUT(type, ...)                                                                                              \
    [] {                                                                                                               \
        Layout layout;                                                                                                 \
        FOR_EACH(ADD_FIELD, type, __VA_ARGS__)                                                                         \
        return layout;                                                                                                 \
    }()

// The lines of a file that say where the fields of a structure are.
Layout TypedLayout(const char *file, std::string_view structure) {
    Layout layout;
    for (const GoldenLine &line : ReadGolden(file))
        if (line.words[0] == structure && line.words.size() == 4)
            layout.push_back(fmt::format("{} {} {}", line.words[1], line.words[2], line.words[3]));
    return layout;
}

std::size_t TypedSize(std::string_view structure) {
    for (const GoldenLine &line : ReadGolden("record_layout.txt"))
        if (line.words[0] == "element_size" && line.words[2] == structure)
            return static_cast<std::size_t>(GoldenNumber(line.words[1]));
    return 0;
}

TEST(CompiledTables, RuleRecords) {
    const auto expect = [](const char *name, std::size_t size, const Layout &layout) {
        EXPECT_EQ(layout, TypedLayout("record_layout.txt", name)) << name;
        EXPECT_EQ(size, TypedSize(name)) << name;
    };
    using List = decltype(HeuristicRule::strings);
    expect("HeuristicRule", sizeof(HeuristicRule),
           LAYOUT(HeuristicRule, header_conditions, section_conditions, section_names, strings, expression, rule_id,
                  detection_name, feature_flags, attribute_a, attribute_b, indexed_conditions, import_modules,
                  import_functions, export_module_names, export_functions, resource_entries, resource_type_entries,
                  resource_strings, measure_conditions, secondary_conditions, object_names, member_names, reserved));
    expect("list", sizeof(List), LAYOUT(List, elements, count));
    expect("header_conditions", sizeof(HeaderCondition), LAYOUT(HeaderCondition, field, op, value));
    expect("section_conditions", sizeof(SectionCondition), LAYOUT(SectionCondition, section, field, op, value));
    expect("section_names", sizeof(SectionNameCondition), LAYOUT(SectionNameCondition, section, op, name));
    expect("strings", sizeof(StringFeature),
           LAYOUT(StringFeature, mask, bytes, length, param_a, param_b, param_c, string_kind, param_d, zero_32,
                  string_section, string_section_length, param_e, zero_43, param_f));
    expect("indexed_conditions", sizeof(IndexedCondition), LAYOUT(IndexedCondition, index, field, op, value));
    expect("import_modules", sizeof(ImportModule), LAYOUT(ImportModule, index, option, op, name));
    expect("import_functions", sizeof(ImportFunction), LAYOUT(ImportFunction, index, op, name));
    expect("export_module_names", sizeof(ExportName), LAYOUT(ExportName, op, name));
    expect("export_functions", sizeof(ExportName), LAYOUT(ExportName, op, name));
    expect("resource_entries", sizeof(ResourceEntry), LAYOUT(ResourceEntry, type, id, name, language, zero_40, value));
    expect("resource_type_entries", sizeof(ResourceTypeEntry),
           LAYOUT(ResourceTypeEntry, type, name, language, zero_36, param_a, param_b));
    expect("resource_strings", sizeof(ResourceString),
           LAYOUT(ResourceString, type, id, name, language, zero_40, key, text));
    expect("measure_conditions", sizeof(MeasureCondition),
           LAYOUT(MeasureCondition, param_a, value_kind, param_b, param_c, op, value));
    expect("secondary_conditions", sizeof(SecondaryCondition), LAYOUT(SecondaryCondition, index, field, op, value));
    expect("object_names", sizeof(ObjectName), LAYOUT(ObjectName, index, option, op, name));
    expect("member_names", sizeof(MemberName), LAYOUT(MemberName, index, option, op, name));
    expect("HostConfig", sizeof(HostConfig), LAYOUT(HostConfig, decoder_directory, retained_value, services));
    EXPECT_EQ(LAYOUT(CleanContext, stream), TypedLayout("record_layout.txt", "CleanContext"));
}

TEST(CompiledTables, HostRecords) {
    EXPECT_EQ(LAYOUT(FileHeader, Machine, NumberOfSections, TimeDateStamp, PointerToSymbolTable, NumberOfSymbols,
                     SizeOfOptionalHeader, Characteristics),
              TypedLayout("host_records.txt", "file_header"));
    EXPECT_EQ(LAYOUT(OptionalHeader, Magic, MajorLinkerVersion, MinorLinkerVersion, SizeOfCode, SizeOfInitializedData,
                     SizeOfUninitializedData, AddressOfEntryPoint, BaseOfCode, ImageBase, BaseOfData, SectionAlignment,
                     FileAlignment, MajorOperatingSystemVersion, MinorOperatingSystemVersion, MajorImageVersion,
                     MinorImageVersion, MajorSubsystemVersion, MinorSubsystemVersion, Win32VersionValue, SizeOfImage,
                     SizeOfHeaders, CheckSum, Subsystem, DllCharacteristics, LoaderFlags, NumberOfRvaAndSizes,
                     SizeOfStackReserve, SizeOfStackCommit, SizeOfHeapReserve, SizeOfHeapCommit),
              TypedLayout("host_records.txt", "opt_header"));
    EXPECT_EQ(LAYOUT(LocatorResult, kind, offset, size), TypedLayout("host_records.txt", "LocatorResult"));
    EXPECT_EQ(LAYOUT(LocatorTableEntry, locator, flags), TypedLayout("host_records.txt", "LocatorTableEntry"));
    Layout section;
    for (const GoldenLine &line : GoldenBlock("searches.txt", "op SectionHeader"))
        if (line.words.size() == 3)
            section.push_back(fmt::format("{} {} {}", line.words[1], line.words[2], line.words[0]));
    EXPECT_EQ(LAYOUT(SectionHeader, Name, VirtualSize, VirtualAddress, SizeOfRawData, PointerToRawData,
                     PointerToRelocations, PointerToLinenumbers, NumberOfRelocations, NumberOfLinenumbers,
                     Characteristics),
              section);
}

// The host calls these by their position.
TEST(CompiledTables, PositionsInTheHostsTables) {
    std::map<std::string, int64_t> typed;
    for (const GoldenLine &line : ReadGolden("record_layout.txt"))
        if (line.words[0].ends_with("_position"))
            typed[line.words[0] + " " + line.words[2]] = GoldenNumber(line.words[1]);
    const std::map<std::string, int64_t> compiled = {
        {"host_services_position call_once", offsetof(HostServices, Service114) / 8},
        {"host_services_position create_lock", offsetof(HostServices, CreateLock) / 8},
        {"host_services_position destroy_lock", offsetof(HostServices, DestroyLock) / 8},
        {"file_stream_position Open", offsetof(FileStreamOperations, Open) / 8},
        {"file_stream_position Seek", offsetof(FileStreamOperations, Seek) / 8},
        {"file_stream_position Read", offsetof(FileStreamOperations, Read) / 8},
        {"file_stream_position Close", offsetof(FileStreamOperations, Close) / 8},
        {"file_stream_position Tell", offsetof(FileStreamOperations, Tell) / 8}};
    EXPECT_EQ(compiled, typed);
}

// Clients bind to the numbers.
TEST(CompiledTables, OrdinalsOfThePlatformModule) {
    std::map<std::string, std::string> compiled;
    for (const GoldenLine &line : ReadGolden("platform.def"))
        if (line.words.size() == 3 && line.words[1].starts_with('@')) {
            compiled[line.words[0]] = line.words[1].substr(1);
            EXPECT_EQ(line.words[2], "NONAME");
        }
    std::map<std::string, std::string> typed;
    for (const GoldenLine &line : ReadGolden("record_layout.txt"))
        if (line.words[0] == "platform_ordinal")
            typed[line.words[2]] = line.words[1];
    EXPECT_EQ(compiled, typed);
    EXPECT_EQ(typed.size(), 12u);
}

} // namespace
} // namespace tavrik::tests
