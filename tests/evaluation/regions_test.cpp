// The regions that strings and measures name: every code of a file that has all of them, and of files that lack them.
#include <map>

#include <gtest/gtest.h>

#include "database/generator/image_facts.h"
#include "evaluation/features.h"
#include "pe/builder/builder.h"
#include "rules/names.h"
#include "rules/regions.h"
#include "tests/support/vb_image.h"

namespace tavrik::tests {
namespace {

using base::Bytes;
using base::Region;

/** What both readers say of a code; they must agree. */
Region StringRegionOf(const Bytes &file, uint8_t kind, uint8_t index, std::string name) {
    base::MemorySource source(file);
    evaluation::Features features(source);
    StringFeature string = {};
    string.string_kind = kind;
    string.param_d = index;
    string.string_section = name.data();
    string.string_section_length = static_cast<uint8_t>(name.size());
    const Region region = features.StringRegion(string);
    const generator::Stretch fact = generator::ImageFacts(file).StringRegion(kind, index, name);
    EXPECT_EQ(region, (Region{fact.offset, fact.size})) << int{kind};
    return region;
}

Region MeasureRegionOf(const Bytes &file, uint8_t code, uint8_t index) {
    base::MemorySource source(file);
    const Region region = evaluation::Features(source).MeasuredRegion(code, index);
    const generator::Stretch fact = generator::ImageFacts(file).MeasureRegion(code, index);
    EXPECT_EQ(region, (Region{fact.offset, fact.size})) << int{code};
    return region;
}

TEST(Regions, AreThoseOfTheirNames) {
    // Sections of different sizes, so that no region is another's; the Visual Basic project is in the first one.
    VbImage vb({.image_base = 0x11000000});
    pe::builder::PeImage &image = vb.image;
    image.sections.push_back(
        {.name = "imports", .pieces = {{pe::builder::ImportTable{{{"a.dll", {"F"}}}}}, {Bytes(0x400, 1)}}});
    image.sections.push_back(
        {.name = "exports", .pieces = {{pe::builder::ExportTable{"b.dll", {{"F", 0x1000}}}}, {Bytes(0x800, 2)}}});
    image.sections.push_back({.name = "resource",
                              .pieces = {{pe::builder::ResourceTable{{{.type = uint16_t{10}, .data = Bytes(0x30, 3)},
                                                                      {.type = uint16_t{11}, .data = Bytes(0x50, 4)}}}},
                                         {Bytes(0xC00, 5)}}});
    image.sections.push_back(
        {.name = "data", .Characteristics = pe::builder::kWritableSection, .pieces = {{Bytes(0x8000, 6)}}});
    image.sections.push_back({.name = "tls", .pieces = {{Bytes(0x1200, 7), {}, pe::kTlsDirectory}}});
    image.sections.push_back({.name = "reloc", .pieces = {{Bytes(0x1600, 8), {}, pe::kRelocationDirectory}}});
    image.sections.push_back({.name = "end", .pieces = {{Bytes(0x1A00, 9)}}});
    image.overlay = Bytes(0x77, 10);
    image.headers.BaseOfData = 0;
    const pe::builder::PeFile trial = image.Build();
    image.headers.BaseOfData = trial.SectionNamed("data").VirtualAddress;
    const pe::builder::PeFile file = image.Build();
    const auto raw = [&](const char *name) {
        const SectionHeader &section = file.SectionNamed(name);
        return Region{section.PointerToRawData, section.SizeOfRawData};
    };
    const Region first = raw(".text");
    const uint32_t headers = 0x400;
    ASSERT_EQ(first.offset, headers);
    const std::map<std::string, Region> expected = {
        {"file", {0, file.size()}},
        {"headers", {0, headers}},
        {"dos_stub", {0x40, 0x40}},
        {"overlay", {file.size() - 0x77, 0x77}},
        {"entry_code", {headers + vb.project.entry, first.length - vb.project.entry}},
        {"last", raw("end")},
        {"entry", first},
        {"code", first},
        {"data", raw("data")},
        {"import", raw("imports")},
        {"resource", raw("resource")},
        {"export", raw("exports")},
        {"relocation", raw("reloc")},
        {"tls", raw("tls")},
        {"largest", raw("data")},
        {"next_to_last", raw("reloc")},
        {"vb", {headers + vb.header, first.length - vb.header}}};
    std::size_t checked = 0;
    for (const rules::Region &region : rules::Regions()) {
        SCOPED_TRACE(region.name);
        if (region.string_kind != 0) {
            EXPECT_EQ(rules::RegionOfString(region.string_kind),
                      rules::RegionOfString(static_cast<uint8_t>(region.string_kind + 1)));
            if (region.measure_code != 0) {
                EXPECT_EQ(rules::RegionOfString(region.string_kind), rules::RegionOfMeasure(region.measure_code));
            }
        }
        const auto found = expected.find(std::string(region.name));
        if (found == expected.end() || region.argument != rules::RegionArgument::None)
            continue;
        ++checked;
        for (const int end : {0, 1})
            if (region.string_kind != 0) {
                EXPECT_EQ(StringRegionOf(file.bytes, static_cast<uint8_t>(region.string_kind + end), 0, ""),
                          found->second);
            }
        if (region.measure_code != 0) {
            EXPECT_EQ(MeasureRegionOf(file.bytes, region.measure_code, 0), found->second);
        }
    }
    EXPECT_EQ(checked, expected.size());

    // The regions that take an argument.
    using rules::CodeOf;
    using rules::MeasureRegion;
    using rules::StringKind;
    for (const uint8_t index : std::initializer_list<uint8_t>{0, 1, 7, 8}) {
        const Region section = index < file.sections.size()
                                   ? Region{file.sections[index].PointerToRawData, file.sections[index].SizeOfRawData}
                                   : Region{};
        EXPECT_EQ(StringRegionOf(file.bytes, CodeOf(StringKind::IndexedSection), index, ""), section);
        EXPECT_EQ(MeasureRegionOf(file.bytes, CodeOf(MeasureRegion::IndexedSection), index), section);
    }
    EXPECT_EQ(StringRegionOf(file.bytes, CodeOf(StringKind::NamedSection), 3, "exports"), raw("exports"));
    EXPECT_TRUE(StringRegionOf(file.bytes, CodeOf(StringKind::NamedSection), 0, "export").IsAbsent());
    EXPECT_EQ(StringRegionOf(file.bytes, CodeOf(StringKind::ResourceData), 0, "").length, 0x30u);
    EXPECT_EQ(MeasureRegionOf(file.bytes, CodeOf(MeasureRegion::ResourceData), 1).length, 0x50u);
    EXPECT_TRUE(MeasureRegionOf(file.bytes, CodeOf(MeasureRegion::ResourceData), 2).IsAbsent());
    for (const int code : {0, 33, 59, 79, 255}) {
        EXPECT_TRUE(StringRegionOf(file.bytes, static_cast<uint8_t>(code), 0, "").IsAbsent()) << code;
        EXPECT_TRUE(MeasureRegionOf(file.bytes, static_cast<uint8_t>(code), 0).IsAbsent()) << code;
    }
}

TEST(Regions, OfAFileWithoutThemAreAbsent) {
    pe::builder::PeImage image;
    image.headers.AddressOfEntryPoint = 0;
    image.sections = {{.name = "only", .pieces = {{Bytes(0x10, 1)}}}};
    const Bytes file = image.Build().bytes;
    for (const rules::Region &region : rules::Regions()) {
        const bool is_there = region.name == "file" || region.name == "headers" || region.name == "dos_stub" ||
                              region.name == "last" || region.name == "largest" || region.name == "section";
        if (region.argument != rules::RegionArgument::Name && region.name != "data" && region.measure_code != 0) {
            EXPECT_EQ(!MeasureRegionOf(file, region.measure_code, 0).IsAbsent(), is_there) << region.name;
        }
    }
    // An entry point in the headers: its code ends with them. One in a hole has none.
    image.headers.AddressOfEntryPoint = 0x10;
    EXPECT_EQ(MeasureRegionOf(image.Build().bytes, rules::CodeOf(rules::MeasureRegion::EntryCode), 0),
              (Region{0x10, 0x1F0}));
    image.sections.push_back({.name = "hole", .VirtualSize = 0x1000, .VirtualAddress = 0x5000, .SizeOfRawData = 0});
    image.headers.AddressOfEntryPoint = 0x5000;
    EXPECT_TRUE(MeasureRegionOf(image.Build().bytes, rules::CodeOf(rules::MeasureRegion::EntryCode), 0).IsAbsent());
}

} // namespace
} // namespace tavrik::tests
