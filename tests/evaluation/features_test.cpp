// What conditions mean at their edges, on files made for them: a rule of one or a few conditions is asked of each.
#include <cstring>

#include <gtest/gtest.h>

#include "pe/builder/builder.h"
#include "tests/support/rule_check.h"

namespace tavrik::tests {
namespace {

using namespace pe::builder;
using base::Bytes;

PeImage SmallImage() {
    PeImage image;
    image.entry_code = {0xC3};
    image.sections.push_back({.name = ".text", .Characteristics = kCodeSection, .pieces = {{Bytes(64, 0x90)}}});
    const ImportTable imports{{{"Alpha.dll", {"First", uint16_t{17}}}, {"Beta.dll", {"Second"}}}};
    image.sections.push_back({.name = ".idata", .pieces = {{imports}}});
    return image;
}

void SetU32(Bytes &file, std::size_t offset, uint32_t value) {
    std::memcpy(&file.at(offset), &value, sizeof(value));
}

uint32_t FileHeaderOf(const Bytes &file) {
    uint32_t e_lfanew;
    std::memcpy(&e_lfanew, &file[0x3C], sizeof(e_lfanew));
    return e_lfanew + 4;
}

TEST(Conditions, NeedTheirValueEvenToDifferFromIt) {
    Check(SmallImage().Build().bytes, {{"header { ImageBaseHigh != 1 }", false},
                                       {"header { VB.Signature != 1 }", false},
                                       {"header { ExportNameCount != 1 }", true},
                                       {"header { EntryPointSection == 0 }", true},
                                       {"sections { [2].Characteristics != 0 }", false},
                                       {"section_names { export != \"x\" }", false},
                                       {"section_names { any != \"x\" }", true},
                                       {"measures { entropy(overlay) != 3 }", false},
                                       {"import_table { [2].Name != 0 }", false},
                                       {"import_modules { [2] != \"x\" }", false},
                                       {"import_modules { != \"x\" }", true},
                                       {"import_modules { [1] != \"beta.dll\" }", false},
                                       {"export_module { != \"x\" }", true},
                                       {"object_names { [0] != \"x\" }", false}});
}

TEST(Conditions, AreAlternativesOnlyInRuns) {
    Check(SmallImage().Build().bytes,
          {{"header { Subsystem == 3 | 2 }", true},
           {"header { Subsystem == 3 | 2 | 2 }", true},
           {"header { Subsystem == 2; Magic == 0x10B; Subsystem == 3 }", false},
           {"section_names { [0] == \"CODE\" | \".text\"; [1] == \".idata\" }", true},
           {"section_names { any == \".text\"; any == \"CODE\" }", false},
           {"import_modules { \"alpha\" prefix; \"BETA.DLL\" }", true},
           {"import_modules { \"Alpha.dll\"; \"Gamma.dll\" }", false},
           {"import_modules { \"Beta.dll\" } import_functions { #0 \"First\" }", false},
           {"import_modules { != \"Beta.dll\" prefix cased; \"Beta.dll\" }", false},
           {"import_modules { [0] \"Alpha.dll\"; != \"none\" } import_functions { #0 \"First\"; #0 \"#17\"; #1 "
            "\"Second\" }",
            true},
           {"import_modules { != \"none\" } import_functions { #0 != \"Third\"; #0 != \"#017\" }", true}});
}

TEST(Conditions, ReadHeadersOfEitherWidthAndLength) {
    PeImage image = SmallImage();
    image.is_pe32_plus = true;
    image.headers.ImageBase = 0x1'4000'0000;
    image.headers.SizeOfHeapCommit = 0x3000;
    image.headers.LoaderFlags = 7;
    image.headers.NumberOfRvaAndSizes = 2;
    Bytes file = image.Build().bytes;
    Check(file, {{"header { ImageBase == 0x40000000; ImageBaseHigh == 1; SizeOfHeapCommit == 0x3000 }", true},
                 {"header { LoaderFlags == 7; ImportTable.VirtualAddress > 0 }", true},
                 {"header { BaseOfData >= 0 }", false},
                 {"header { ResourceTable.VirtualAddress >= 0 }", false},
                 {"import_modules { != \"none\" } import_functions { #0 \"#17\" }", true}});
    file[FileHeaderOf(file) + 16] = 0x5B; // SizeOfOptionalHeader
    Check(file, {{"header { SizeOfStackReserve == 0x100000 }", true},
                 {"header { SizeOfHeapReserve >= 0 }", false},
                 {"import_modules { != \"none\" } import_functions { #0 \"#17\" }", false}});
    file[FileHeaderOf(file) + 20] = 7; // Magic
    Check(file, {{"header { Magic == 0x207 }", true}, {"header { SizeOfCode >= 0 }", false}});
    file.resize(FileHeaderOf(file) + 19);
    Check(file, {{"header { e_magic == 0x5A4D }", false}, {"strings { A = \"MZ\" in dos_stub }", false}});
}

TEST(Conditions, PickTheFirstSectionAndNoneBeyondTheBounds) {
    Bytes file = SmallImage().Build().bytes;
    const std::size_t table = FileHeaderOf(file) + 20 + 0xE0;
    uint32_t entry;
    std::memcpy(&entry, &file[table + 12], sizeof(entry));
    SetU32(file, table + 40 + 12, entry); // the second section's VirtualAddress
    Check(file, {{"header { EntryPointSection == 0 } section_names { entry == \".text\" }", true},
                 {"section_names { largest == \".text\"; last == \".idata\"; next_to_last == \".text\" }", true}});
    file.resize(table + 600 * 40);
    file[FileHeaderOf(file) + 2] = 600 & 0xFF; // NumberOfSections
    file[FileHeaderOf(file) + 3] = 600 >> 8;
    file[table + 511 * 40] = 'L';
    Check(file, {{"section_names { last == \"L\"; [499] == \"\" } header { NumberOfSections == 600 }", true},
                 {"section_names { [500] == \"\" }", false}});
}

TEST(Conditions, ReadTheListOfProducts) {
    constexpr uint32_t kKey = 0x1234'5678;
    constexpr uint32_t kStart = 0x536E6144 ^ kKey; // "DanS"
    constexpr uint32_t kRich = 0x68636952;
    const auto file = [](const std::vector<uint32_t> &words) {
        PeImage image = SmallImage();
        image.dos_stub.resize(words.size() * sizeof(uint32_t));
        std::memcpy(image.dos_stub.data(), words.data(), image.dos_stub.size());
        return image.Build().bytes;
    };
    Check(file({kStart, kKey, kKey, kKey, 0xAB ^ kKey, 3 ^ kKey, kRich, kKey}),
          {{"header { Rich.Offset == 0x58; Rich.Key == 0x12345678; Rich.Count == 1; Rich.LastBuild == 0xAB }", true}});
    Check(file({kStart, kKey, kKey, kKey, kRich, kKey}),
          {{"header { Rich.Count == 0 }", true}, {"header { Rich.LastBuild >= 0 }", false}});
    Check(file({kRich, kKey, kStart, kKey, kKey, kKey, kKey, kRich, kKey, 0}),
          {{"header { Rich.Offset == 0x5C }", true}, {"header { Rich.Count >= 0 }", false}}); // a rest
    Check(file({kRich, kKey}), {{"header { Rich.Key == 0x12345678 }", true}, {"header { Rich.Count >= 0 }", false}});
    Check(file({0, kRich}), {{"header { Rich.Offset >= 0 }", false}}); // no room for the key
}

} // namespace
} // namespace tavrik::tests
