// Maps of files, the signer's name and the report for people.
#include <algorithm>
#include <cstring>
#include <initializer_list>

#include <gtest/gtest.h>

#include "pe/builder/builder.h"
#include "pe/certificate.h"
#include "scanner/html/html_report.h"
#include "scanner/map/svg_map.h"
#include "scanner/map/terminal_map.h"
#include "scanner/recording_source.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

using scanner::map::Area;
using scanner::map::FileMap;

// ---- DER, for the certificate table
// ----------------------------------------------------------------------------------

std::string Der(uint8_t tag, std::initializer_list<std::string> parts) {
    std::string content;
    for (const std::string &part : parts)
        content += part;
    std::string length(1, static_cast<char>(content.size()));
    if (content.size() >= 0x80)
        length = {'\x82', static_cast<char>(content.size() >> 8), static_cast<char>(content.size())};
    return static_cast<char>(tag) + length + content;
}

std::string Name(const std::string &organisation, const std::string &common) {
    const auto pair = [](char attribute, const std::string &text) {
        return Der(0x31, {Der(0x30, {Der(6, {std::string("\x55\x04") + attribute}), Der(0x0C, {text})})});
    };
    return Der(0x30, {pair(10, organisation), common.empty() ? "" : pair(3, common)});
}

std::string Certificate(const std::string &serial, const std::string &issuer, const std::string &subject) {
    return Der(0x30, {Der(0x30, {Der(0xA0, {Der(2, {"\x02"})}), Der(2, {serial}), Der(0x30, {}), issuer, Der(0x30, {}),
                                 subject})});
}

// Signed by the certificate with the serial number 7; another one comes first.
std::string SignedData(const std::string &subject) {
    const std::string authority = Name("Authority Ltd", "Test Authority");
    return Der(
        0x30,
        {Der(6, {"\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02"}),
         Der(0xA0,
             {Der(0x30, {Der(2, {"\x01"}), Der(0x31, {}), Der(0x30, {}),
                         Der(0xA0, {Certificate("\x05", authority, Name("Other", "Other")),
                                    Certificate("\x07", authority, subject)}),
                         Der(0x31, {Der(0x30, {Der(2, {"\x01"}), Der(0x30, {authority, Der(2, {"\x07"})})})})})})});
}

std::span<const uint8_t> BytesOf(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

TEST(Signer, IsTheSubjectOfTheSignersCertificate) {
    const std::string whole = SignedData(Name("Maker GmbH", "Maker"));
    const pe::Signer maker = {"Maker", "Test Authority"};
    EXPECT_EQ(pe::ReadSignerOfPkcs7(BytesOf(whole)), maker);
    EXPECT_EQ(pe::ReadSignerOfPkcs7(BytesOf(SignedData(Name("Maker GmbH", ""))))->name, "Maker GmbH");
    // Of any content it says nothing wrong and reads nothing beyond it.
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const std::string cut = whole.substr(0, length);
        EXPECT_FALSE(pe::ReadSignerOfPkcs7(BytesOf(cut))) << length;
    }
    for (std::size_t place = 0; place < whole.size(); ++place)
        for (const char value : {'\0', '\x7F', '\x80', '\x84', '\xFF'}) {
            std::string changed = whole;
            changed[place] = value;
            pe::ReadSignerOfPkcs7(BytesOf(changed));
        }
}

// ---- The map
// ---------------------------------------------------------------------------------------------------------

// Headers to 0x200 (SizeOfHeaders 0x400), .text at 0x400, a hole, .data at 0xA00, an overlay at 0xC00, a signature at
// 0xD00.
base::Bytes SignedProgram(const std::string &subject) {
    pe::builder::PeImage image;
    image.headers.SizeOfHeaders = 0x400;
    image.sections.push_back({.name = ".text",
                              .Characteristics = pe::builder::kCodeSection,
                              .SizeOfRawData = 0x400,
                              .PointerToRawData = 0x400,
                              .pieces = {}});
    image.sections.push_back({.name = ".d<t>&",
                              .Characteristics = pe::builder::kDataSection,
                              .SizeOfRawData = 0x200,
                              .PointerToRawData = 0xA00,
                              .pieces = {{base::Bytes(0x200, 'A')}}});
    const std::string der = SignedData(Name(subject, subject));
    const std::size_t entry = (8 + der.size() + 7) / 8 * 8;
    image.overlay.assign(0x100 + entry, 0);
    for (std::size_t at = 0; at < 0x100; ++at)
        image.overlay[at] = static_cast<uint8_t>(at);
    const uint8_t header[] = {
        static_cast<uint8_t>(8 + der.size()), static_cast<uint8_t>((8 + der.size()) >> 8), 0, 0, 0, 2, 2, 0};
    std::copy(std::begin(header), std::end(header), image.overlay.begin() + 0x100);
    std::copy(der.begin(), der.end(), image.overlay.begin() + 0x108);
    image.directories[pe::kCertificateDirectory] = {0xD00, static_cast<uint32_t>(entry)};
    return image.Build().bytes;
}

struct Mapped {
    explicit Mapped(base::Bytes content) : bytes(std::move(content)), source(bytes), file(source), image(file) {
        map = scanner::map::MakeMap(source, image);
    }

    base::Bytes bytes;
    base::MemorySource source;
    base::FileBytes file;
    pe::Image image;
    FileMap map;
};

TEST(FileMap, CoversTheFileOnce) {
    const Mapped mapped(SignedProgram("Maker"));
    const struct {
        Area area;
        uint64_t offset;
        uint64_t end;
        const char *name;
        double entropy; // -1: any
    } rows[] = {
        {Area::Headers, 0, 0x400, "headers", -1},    {Area::Section, 0x400, 0x800, ".text", -1},
        {Area::Gap, 0x800, 0xA00, "gap", 0},         {Area::Section, 0xA00, 0xC00, ".d<t>&", 0},
        {Area::Overlay, 0xC00, 0xD00, "overlay", 8}, {Area::Signature, 0xD00, mapped.bytes.size(), "signature", -1}};
    ASSERT_EQ(mapped.map.segments.size(), std::size(rows));
    for (std::size_t index = 0; index < std::size(rows); ++index) {
        SCOPED_TRACE(index);
        const scanner::map::Segment &segment = mapped.map.segments[index];
        EXPECT_EQ(segment.area, rows[index].area);
        EXPECT_EQ(segment.place.offset, rows[index].offset);
        EXPECT_EQ(segment.place.End(), rows[index].end);
        EXPECT_EQ(segment.name, rows[index].name);
        if (rows[index].entropy >= 0) {
            EXPECT_DOUBLE_EQ(segment.entropy, rows[index].entropy);
        }
    }
    EXPECT_EQ(mapped.map.entropy.size(), (mapped.bytes.size() + 511) / 512);
    EXPECT_EQ(mapped.map.entropy[5], 0); // .d<t>&
    EXPECT_EQ(pe::ReadSigner(mapped.image), (pe::Signer{"Maker", "Test Authority"}));
    // Another entry first; then the table's end before the signature's entry.
    base::Bytes two = mapped.bytes;
    two.insert(two.begin() + 0xD00, {16, 0, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const std::size_t directory = mapped.image.SignatureOffset() + 24 + pe::optional_header::kDirectories +
                                  pe::kDirectorySize * pe::kCertificateDirectory;
    for (const auto length : {static_cast<uint32_t>(two.size() - 0xD00), 16u}) {
        std::memcpy(two.data() + directory + 4, &length, sizeof length);
        EXPECT_EQ(pe::ReadSigner(Mapped(two).image).has_value(), length > 16);
    }

    const Mapped text(base::Bytes(700, 'x'));
    ASSERT_EQ(text.map.segments.size(), 1u);
    EXPECT_EQ(text.map.segments[0].area, Area::Data);
    EXPECT_TRUE(Mapped(base::Bytes()).map.segments.empty());
}

TEST(FileMap, IsDrawnToScale) {
    FileMap map;
    map.size = 0x1000;
    map.segments = {{Area::Headers, {0, 0x440}, "headers", 2}, {Area::Section, {0x440, 0xBC0}, "a\x1b[1m", 7.5}};
    map.bucket_size = 0x800;
    map.entropy = {2, 7.5};
    map.marks = {{scanner::map::MarkKind::Payload, {0x800, 0x440}, "<cabinet>"}};
    map.read = {{0, 0x100}};
    // 29 columns of 141.2 bytes.
    const std::string text = scanner::map::TerminalText(map, {40, false});
    EXPECT_NE(text.find("\nlayout    |.......|.....a\\x1b[1m.......\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\npayloads                ▐███████▌\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nread      ██\n"), std::string::npos) << text;
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_NE(scanner::map::TerminalText(map, {40, true}).find("▌"), std::string::npos);
    const std::string svg = scanner::map::SvgDocument(map);
    EXPECT_NE(svg.find("<rect class=\"headers\" x=\"76.00\" y=\"36.0\" width=\"242.25\""), std::string::npos) << svg;
    EXPECT_NE(svg.find("<title>&lt;cabinet&gt;: 0x800 to 0xc40, 1.06 KiB</title>"), std::string::npos) << svg;
}

TEST(RecordingSource, JoinsReadsThatFollowEachOther) {
    const std::string text(100, 'x');
    base::MemorySource memory(BytesOf(text));
    scanner::RecordingSource source(memory);
    char buffer[64];
    for (const auto &[offset, length] :
         {std::pair<uint64_t, std::size_t>{50, 10}, {60, 5}, {62, 8}, {0, 4}, {90, 20}, {200, 1}})
        source.ReadAt(offset, buffer, length);
    const std::vector<scanner::RecordingSource::Access> wanted = {{50, 20, 20}, {0, 4, 4}, {90, 20, 10}, {200, 1, 0}};
    EXPECT_TRUE(std::ranges::equal(source.accesses(), wanted));
    EXPECT_EQ(source.ReadRegions(), (std::vector<base::Region>{{0, 4}, {50, 20}, {90, 10}}));
}

// ---- The report for people
// -------------------------------------------------------------------------------------------

// Whatever the names are, the page has no more elements and no other script than it has with harmless ones.
TEST(HtmlReport, HasNoMarkupOfHostileNames) {
    const auto row = [](const std::string &name) {
        Mapped mapped(SignedProgram(name));
        scanner::FileReport report;
#ifndef _WIN32 // which has no names of any bytes
        report.file = name;
#endif
        report.size = mapped.bytes.size();
        report.status = scanner::ScanStatus::Failed;
        report.error = name;
        report.detections.push_back({1, name, 0});
        scanner::Payload &payload = report.payloads.emplace_back();
        payload.extent = scanner::payloads::Extent{.format = {}, .description = name};
        payload.sha256 = name;
        report.near = {{.extent = {}, .entries = {{1, {{name, name, name}}}}}};
        scanner::html::FileDetails details;
        details.map = mapped.map;
        details.map.marks.push_back({{}, {0, 1}, name});
        details.sha256 = details.kind = details.error = name;
        details.has_certificates = true;
        details.signer = pe::ReadSigner(mapped.image);
        details.version.strings = {{name, name}};
        details.conditions = {name};
        details.contents.emplace_back().error = name;
        details.contents.back().count = 1;
        details.contents.back().members.emplace_back().path = name;
        return scanner::html::FileRow(report, details);
    };
    const auto shape = [](const std::string &markup) {
        std::string marks;
        for (const char c : markup)
            if (std::string_view("<>\"'").find(c) != std::string_view::npos)
                marks += c;
        return marks;
    };
    const std::string plain = row("name");
    for (const char *hostile : {"</script><script>alert(1)</script>", "<!--", "\"onload=\"alert(1)", "'><img src=x>",
                                "a\x01\x1b[31m\xff", "]]>", "&lt;b&gt;"}) {
        const std::string markup = row(hostile);
        EXPECT_EQ(shape(markup), shape(plain)) << hostile;
        EXPECT_TRUE(std::ranges::none_of(markup, [](char c) { return c >= 0 && c < ' ' && c != '\n'; })) << hostile;
    }
}

TEST(HtmlReport, AppearsWhenItIsFinished) {
    const FreshFolder folder;
    {
        scanner::html::HtmlReport report("report.html", {"program", "database", "a <b>", "now"});
        report.Add("<details class=\"f\"></details>");
    }
    EXPECT_EQ(ReadFile("report.html"), "");
    scanner::html::HtmlReport report("report.html", {"program", "database", "a <b>", "now"});
    report.Add("<details class=\"f\"></details>");
    report.Finish("1 file & more");
    const std::string page = ReadFile("report.html");
    EXPECT_NE(page.find("a &lt;b&gt;"), std::string::npos);
    EXPECT_NE(page.find("1 file &amp; more"), std::string::npos);
    EXPECT_TRUE(page.ends_with("</html>\n"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), std::filesystem::directory_iterator()), 1);
}

} // namespace
} // namespace tavrik::tests
