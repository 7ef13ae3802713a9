// Conditions on measures: their values, the operators, and which of them are alternatives.
#include <cstring>

#include <gtest/gtest.h>

#include "evaluation/measures.h"
#include "pe/builder/builder.h"
#include "tests/support/rule_check.h"

namespace tavrik::tests {
namespace {

using base::Bytes;

/** 512 bytes of every value, 256 zeros and 256 ones, and the digits whose CRC-32 is well known. */
Bytes MeasuredFile() {
    Bytes every(512);
    for (std::size_t i = 0; i < every.size(); ++i)
        every[i] = static_cast<uint8_t>(i);
    Bytes halves(512);
    std::fill(halves.begin() + 256, halves.end(), uint8_t{1});
    Bytes digits(512);
    std::memcpy(digits.data(), "123456789", 9);
    pe::builder::PeImage image;
    image.headers.AddressOfEntryPoint = 0;
    image.sections = {{.name = ".all", .pieces = {{every}}},
                      {.name = ".halves", .pieces = {{halves}}},
                      {.name = ".digits", .pieces = {{digits}}}};
    return image.Build().bytes;
}

TEST(Measures, AreOfTheRegionOrItsBeginning) {
    Check(MeasuredFile(), {{"measures { entropy(section[0]) == 8 }", true},
                           {"measures { entropy(section[1]) == 1 }", true},
                           {"measures { entropy(section[1], 0x100) == 0 }", true},
                           {"measures { entropy(section[1], 0x101) > 0 }", true},
                           {"measures { entropy(section[2], 9) == 3.17 }", true},
                           {"measures { crc32(section[2], 9) == 0xCBF43926 }", true},
                           {"measures { crc32(section[2], 8) == 0xCBF43926 }", false},
                           {"measures { crc32(section[2]) == 0xCBF43926 }", false},
                           {"measures { crc32(last, 9) == 0xCBF43926 }", true},
                           {"measures { entropy(section[0], 0x200) >= 0 }", true},
                           {"measures { entropy(section[0], 0x201) >= 0 }", false},
                           {"measures { crc32(section[0], 0x201) >= 0 }", false},
                           {"measures { entropy(section[3]) >= 0 }", false},
                           {"measures { crc32(overlay) >= 0 }", false},
                           {"measures { crc32(section[2], 9) has 0xCBF43926; crc32(section[2], 9) has 0x2 }", true},
                           {"measures { crc32(section[2], 9) has 0x1 }", false}});
    for (const auto &[op, below, same, above] : {std::tuple("<", true, false, false),
                                                 {"<=", true, true, false},
                                                 {"==", false, true, false},
                                                 {"!=", true, false, true},
                                                 {">=", false, true, true},
                                                 {">", false, false, true}}) {
        const std::string entropy = std::string("measures { entropy(section[2], 9) ") + op;
        const std::string crc = std::string("measures { crc32(section[2], 9) ") + op;
        Check(MeasuredFile(), {{entropy + " 3.171 }", below},
                               {entropy + " 3.17 }", same},
                               {entropy + " 3.169 }", above},
                               {crc + " 0xCBF43927 }", below},
                               {crc + " 0xCBF43926 }", same},
                               {crc + " 0xCBF43925 }", above}});
    }
}

// A run of == about one value needs one of them; a difference in region, kind, length or position ends the run.
TEST(Measures, AreAlternativesOfOneValueOnly) {
    Check(MeasuredFile(),
          {{"measures { entropy(section[0]) == 1 | 8 }", true},
           {"measures { entropy(section[0]) == 8 | 1 }", true},
           {"measures { entropy(section[0]) == 2 | 1 }", false},
           {"measures { entropy(section[0]) == 8; entropy(section[0]) != 8 }", false},
           {"measures { entropy(section[0]) != 1; entropy(section[0]) == 8 | 1 }", true},
           {"measures { entropy(section[0]) != 8; entropy(section[0]) == 8 }", false},
           {"measures { entropy(section[0]) < 8; entropy(section[0]) == 8 }", false},
           {"measures { entropy(section[0]) == 8; entropy(section[1]) == 8 }", false},
           {"measures { entropy(section[0]) == 1; entropy(section[1]) == 1 }", false},
           {"measures { entropy(section[0]) == 8; entropy(headers) == 8 }", false},
           {"measures { entropy(headers) == 8; entropy(section[0]) == 8 }", false},
           {"measures { entropy(section[1], 0x100) == 0; entropy(section[1]) == 0 }", false},
           {"measures { entropy(section[1], 0x100) == 1; entropy(section[1]) == 1 }", false},
           {"measures { entropy(section[1], 0x100) == 0; entropy(section[1]) == 1 }", true},
           {"measures { crc32(section[2], 9) == 0xCBF43926; entropy(section[2], 9) == 8 }", false},
           {"measures { crc32(section[2], 9) == 1; entropy(section[2], 9) == 3.17 }", false},
           {"measures { crc32(section[2], 9) == 1 | 0xCBF43926 }", true},
           {"measures { crc32(section[2], 9) == 0xCBF43926; crc32(section[2], 8) == 0xCBF43926 }", false}});
}

TEST(Conditions, OfOtherListsAreAlternativesOfOneValueOnly) {
    const Bytes file = MeasuredFile();
    const auto name = [](const char *text) { return std::string("section_names { ") + text + " }"; };
    Check(file, {{"sections { [0].SizeOfRawData == 0x200 | 0x400; [1].SizeOfRawData == 0x200 }", true},
                 {"sections { [0].SizeOfRawData == 0x200; [1].SizeOfRawData == 0x400 }", false},
                 {"sections { [0].SizeOfRawData == 0x400; [1].SizeOfRawData == 0x200 }", false},
                 {"sections { [0].SizeOfRawData == 0x200; [0].PointerToRawData == 1 }", false},
                 {"sections { [0].PointerToRawData == 1; [0].SizeOfRawData == 0x200 }", false},
                 {"sections { [0].SizeOfRawData > 0x1FF; [0].SizeOfRawData < 0x201 }", true},
                 {"sections { [0].SizeOfRawData > 0x200 }", false},
                 {"header { NumberOfSections == 3; Subsystem == 9 }", false},
                 {"header { NumberOfSections == 9; Subsystem == 2 }", false},
                 {"header { NumberOfSections > 9; NumberOfSections == 3 }", false},
                 {"header { Characteristics has 0x102 }", true},
                 {"header { Characteristics has 0x103 }", false},
                 {name("[0] == \".all\"; [1] == \".all\""), false},
                 {name("[0] == \".x\"; [1] == \".halves\""), false},
                 {name("[0] == \".x\" | \".all\""), true},
                 {name("last == \".digits\"; next_to_last == \".halves\""), true}});
}

TEST(Conditions, OnTraitsAskTheFile) {
    pe::builder::PeImage image;
    image.entry_code = {0xC3};
    image.headers.AddressOfEntryPoint = 0x2000;
    const auto set = [&](uint32_t first, uint32_t last, std::size_t functions) {
        image.sections = {{.name = "a", .Characteristics = first, .VirtualAddress = 0x1000, .pieces = {{Bytes(64, 1)}}},
                          {.name = "b", .Characteristics = last, .VirtualAddress = 0x2000, .pieces = {{Bytes(64, 2)}}}};
        pe::builder::ImportedModule module{"x.dll", {}};
        for (std::size_t i = 1; i <= functions; ++i)
            module.functions.emplace_back(static_cast<uint16_t>(i));
        if (functions > 0)
            image.sections[0].pieces.push_back({pe::builder::ImportTable{{module}}});
        return image.Build().bytes;
    };
    namespace flag = pe::section_flag;
    Check(set(flag::kWrite | flag::kExecute, flag::kRead, 9), {{"traits entry_in_last", true},
                                                               {"traits writable_entry", false},
                                                               {"traits executable_last", false},
                                                               {"traits few_imports", false},
                                                               {"traits overlay", false},
                                                               {"traits visual_basic", false},
                                                               {"traits native_code", false},
                                                               {"traits virtual_section", false}});
    image.overlay = {1};
    Check(set(flag::kRead, flag::kWrite, 8), {{"traits overlay", true},
                                              {"traits writable_entry", true},
                                              {"traits executable_last", false},
                                              {"traits few_imports", true}});
    image.headers.AddressOfEntryPoint = 0x1000;
    Check(set(flag::kRead, flag::kExecute, 0), {{"traits entry_in_last", false},
                                                {"traits writable_entry", false},
                                                {"traits executable_last", true},
                                                {"traits overlay, few_imports", true},
                                                {"traits overlay, entry_in_last", false}});
    image.sections.push_back({.name = "c", .VirtualSize = 1, .SizeOfRawData = 0});
    Check(image.Build().bytes, {{"traits virtual_section", true}});
}

TEST(Measures, OfLongRegionsAreThoseOfTheirPieces) {
    Bytes content(300 * 1024);
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<uint8_t>(i < content.size() / 2 ? 0 : 255);
    base::MemorySource source(content);
    base::FileBytes bytes(source);
    EXPECT_EQ(evaluation::MeasureEntropy(bytes, {0, content.size()}), 1000u);
    EXPECT_EQ(evaluation::MeasureEntropy(bytes, {0, content.size() / 2}), 0u);
    EXPECT_EQ(evaluation::MeasureEntropy(bytes, {0, 0}), std::nullopt);
    EXPECT_EQ(evaluation::MeasureCrc32(bytes, {0, 0}), std::nullopt);
    EXPECT_EQ(evaluation::MeasureCrc32(bytes, {1, content.size()}), std::nullopt) << "beyond the file";
}

} // namespace
} // namespace tavrik::tests
