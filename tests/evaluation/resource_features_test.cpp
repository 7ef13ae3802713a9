// The resources of a file and the texts in them, well-formed and hostile.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "evaluation/features.h"
#include "pe/builder/builder.h"
#include "pe/manifest.h"
#include "rules/model.h"

namespace tavrik::tests {
namespace {

using base::Bytes;
using base::ByteWriter;
using rules::kAnyResource;

constexpr uint32_t kAddress = 0x1000; // of the section that holds the tree
constexpr uint32_t kFlag = 0x80000000;

/** The features of a file whose resource section has these contents. */
class ResourceFile {
public:
    explicit ResourceFile(pe::builder::Piece piece)
        : bytes_(Build(std::move(piece))), source_(bytes_), features(source_) {}
    explicit ResourceFile(pe::builder::ResourceTable table) : ResourceFile(pe::builder::Piece{std::move(table)}) {}
    explicit ResourceFile(Bytes tree) : ResourceFile(pe::builder::Piece{std::move(tree), {}, pe::kResourceDirectory}) {}

    bool HasText(uint32_t type, uint32_t key, const char *text, uint32_t id = kAnyResource) {
        ResourceString element = {};
        element.type = type;
        element.id = id;
        element.key = key;
        element.text = text;
        return features.Strings().IsMet(element);
    }

private:
    static Bytes Build(pe::builder::Piece piece) {
        pe::builder::PeImage image;
        image.headers.AddressOfEntryPoint = 0;
        image.sections.push_back({.name = ".rsrc", .VirtualAddress = kAddress, .pieces = {std::move(piece)}});
        return image.Build().bytes;
    }

    Bytes bytes_;
    base::MemorySource source_;

public:
    evaluation::Features features;
};

struct Entry {
    uint32_t name;
    uint32_t target;
};

void PutDirectory(ByteWriter &tree, uint32_t place, const std::vector<Entry> &entries, uint32_t count) {
    tree.FillTo(place + 12);
    tree.U16(0);
    tree.U16(count);
    for (const Entry &entry : entries)
        tree.Put(entry);
}

void PutDirectory(ByteWriter &tree, uint32_t place, const std::vector<Entry> &entries) {
    PutDirectory(tree, place, entries, static_cast<uint32_t>(entries.size()));
}

bool Selects(const pe::Resource &resource, const std::string &name, uint32_t id = kAnyResource, uint16_t lang = 0) {
    ResourceEntry element = {};
    element.type = kAnyResource;
    element.id = id;
    element.language = lang;
    name.copy(element.name, sizeof(element.name));
    return evaluation::IsResourceSelected(element, resource);
}

TEST(ResourceTree, EndsWithinItsBoundsWhateverItsDirectoriesSay) {
    // A root that is also every other directory. Of its entries, more than count, every second one is a leaf.
    ByteWriter loop;
    PutDirectory(loop, 0, std::vector<Entry>(4096, {1, kFlag}), 0xFFFF);
    EXPECT_TRUE(ResourceFile(loop.Take()).features.Resources().resources.empty());
    std::vector<Entry> entries(5000, {1, kFlag});
    for (std::size_t i = 1; i < entries.size(); i += 2)
        entries[i].target = 0;
    PutDirectory(loop, 0, entries, 0xFFFF);
    EXPECT_EQ(ResourceFile(loop.Take()).features.Resources().resources.size(), 16384u);

    // One resource after so many entries that the bound of all of them comes first.
    ByteWriter late;
    entries.assign(4096, {1, kFlag | 0x9000}); // a directory of 4096 leaves at the second level: none counts
    entries.back() = {2, kFlag | 0x12000};
    PutDirectory(late, 0, entries);
    PutDirectory(late, 0x9000, std::vector<Entry>(4096, {1, 0}));
    PutDirectory(late, 0x12000, {{1, kFlag | 0x12100}});
    PutDirectory(late, 0x12100, {{0x409, 0}});
    EXPECT_TRUE(ResourceFile(late.Take()).features.Resources().resources.empty());

    // Directories beyond the file, and one that the file ends with.
    ByteWriter cut;
    PutDirectory(cut, 0, {{1, kFlag | 0x7FFFFFF0}, {2, kFlag | 0x30}});
    PutDirectory(cut, 0x30, {{1, kFlag | 0x1F0}});
    PutDirectory(cut, 0x1F0, {}, 0xFFFF);
    EXPECT_TRUE(ResourceFile(cut.Take()).features.Resources().resources.empty());
}

TEST(ResourceTree, TellsLeavesAndNamesApart) {
    ByteWriter tree;
    PutDirectory(tree, 0, {{7, 0x180}, {10, kFlag | 0x40}}); // a leaf at the first level
    PutDirectory(tree, 0x40,
                 {{1, 0x180},
                  {2, kFlag | 0x80},
                  {kFlag | 0x200, kFlag | 0x80},
                  {kFlag | 0x300, kFlag | 0x80},
                  {kFlag | 0x600, kFlag | 0x80},
                  {kFlag | 0x7FFFFFFF, kFlag | 0xC0}});
    PutDirectory(tree, 0x80, {{0x10409, 0x180}}, 1);
    PutDirectory(tree, 0xC0, {{kFlag | 0x200, 0x190}, {0x409, kFlag | 0x80}}); // a name, and a fourth level
    tree.FillTo(0x180);
    for (const uint32_t word : {kAddress + 0x200, 4U, 0U, 0U, kAddress + 0x200, 0x7FFFFFFFU, 0U, 0U})
        tree.U32(word); // data within the file and beyond it
    tree.FillTo(0x200);
    tree.U16(3);
    tree.Utf16(u"Ab\u0149");
    tree.FillTo(0x300);
    tree.U16(255);
    tree.Utf16(std::u16string(255, u'x'));
    tree.FillTo(0x600);
    tree.U16(256);
    tree.Utf16(std::u16string(256, u'y'));
    ResourceFile file(tree.Take());
    const auto &resources = file.features.Resources().resources;
    ASSERT_EQ(resources.size(), 5u);
    EXPECT_TRUE(Selects(resources[0], "", 2) && !Selects(resources[0], "", 3));
    EXPECT_FALSE(Selects(resources[0], "", 2, 0x409)) << "a language is more than its low half";
    EXPECT_EQ(resources[0].data.length, 4u);
    EXPECT_EQ(resources[1].entry.name, u"Ab\u0149");
    EXPECT_FALSE(Selects(resources[1], "ABI")) << "a unit is more than its low byte";
    EXPECT_FALSE(Selects(resources[1], "ab"));
    EXPECT_EQ(resources[2].entry.name.size(), 255u);
    EXPECT_FALSE(Selects(resources[2], std::string(30, 'X')));
    for (const std::size_t nameless : {3u, 4u})
        EXPECT_TRUE(resources[nameless].entry.name.empty() && resources[nameless].entry.number == kAnyResource);
    EXPECT_TRUE(Selects(resources[4], "") && !Selects(resources[4], "", 1, 0xFFFF) && resources[4].data.IsAbsent());
}

TEST(ResourceStrings, ReadVersionResources) {
    pe::builder::VersionInfo info;
    info.file_version[3] = 0xFFFF;
    info.strings = {{u"companyNAME", u"A\u00E9\u20AC\U0001F600"},
                    {u"Assembly Version", u"1.2"},
                    {u"Build", u"x\xD800y"},
                    {u"Comments", std::u16string(u"one\0two", 7)}};
    ResourceFile file(pe::builder::ResourceTable{{{.type = uint16_t{16}, .data = info.Lay()}}});
    EXPECT_TRUE(file.HasText(16, 2, "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
    EXPECT_TRUE(file.HasText(16, 14, "1.2") && file.HasText(16, 0, "1.2") && file.HasText(16, 28, "1.0.0.65535"));
    EXPECT_TRUE(file.HasText(16, 1, "one") && !file.HasText(16, 22, "x") && !file.HasText(16, 30, ""));

    // Any length may be wrong: what is read ends with the block around it.
    const Bytes whole = info.Lay();
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t *>(&whole[6])), u"VS_VERSION_INFO");
    for (std::size_t place = 0; place + 2 <= whole.size(); place += 2)
        for (const int wrong : {0x0000, 0x0005, 0x0007, 0xFFFF}) {
            Bytes bytes = whole;
            bytes[place] = static_cast<uint8_t>(wrong);
            bytes[place + 1] = static_cast<uint8_t>(wrong >> 8);
            bytes.resize(bytes.size() - place % 5);
            EXPECT_LE(pe::ReadVersionInfo(bytes).strings.size(), whole.size() / 6);
        }
    info.strings.assign(256, {u"Build", u"\xDC00"});
    info.strings.back().second = u"256";
    info.strings.emplace_back(u"Build", u"257");
    const auto strings = pe::ReadVersionInfo(info.Lay()).strings;
    ASSERT_EQ(strings.size(), 1u) << "unreadable strings count, and none after the bound";
    EXPECT_EQ(strings[0].second, "256");
}

TEST(ResourceStrings, ReadManifests) {
    const auto text = [](std::string_view manifest, uint32_t key) {
        return std::string(pe::FindInManifest(manifest, key).value_or("(absent)"));
    };
    const std::string odd = "<assemblyIdentity\n\tpublicname=\"no\" name = 'no' name=no name='a\"b' version=\"1>2\"/>"
                            "<assemblyIdentityname=\"second\"><description></description>"
                            "<ns:requestedExecutionLevel\r\nlevel=\"highest\" level='no'>";
    EXPECT_EQ(text(odd, 30), "a\"b");
    EXPECT_EQ(text(odd, 31), "(absent)") << "the tag ends within the value";
    EXPECT_EQ(text(odd, 33), "");
    EXPECT_EQ(text(odd, 34), "highest");
    EXPECT_EQ(text(odd, 35), "(absent)");
    for (std::size_t length = 0; length < odd.size(); ++length)
        for (uint32_t key = 29; key < 37; ++key)
            EXPECT_LE(text(odd.substr(0, length), key).size(), 12u);

    // Of many manifests the first 64 are read, and of each so much.
    pe::builder::ResourceTable table;
    for (uint16_t id = 1; id <= 65; ++id)
        table.resources.push_back({.type = uint16_t{24}, .name = id, .data = Bytes(65536, static_cast<uint8_t>(' '))});
    const std::string mark = "mark";
    for (const auto &[resource, place] : {std::pair(0, 65536 - 3), {63, 65536 - 4}, {64, 0}}) {
        Bytes &data = table.resources[static_cast<std::size_t>(resource)].data;
        data.resize(65536 + 4, uint8_t{' '});
        std::ranges::copy(mark, data.begin() + place);
    }
    ResourceFile file(table);
    EXPECT_FALSE(file.HasText(24, 0, "mark", 1));
    EXPECT_TRUE(file.HasText(24, 0, "mark", 64));
    EXPECT_FALSE(file.HasText(24, 0, "mark", 65));
}

TEST(ResourceStrings, ReadStringTables) {
    ByteWriter block;
    for (const std::u16string_view text : {u"", u"\U0001F600", u"abc", u"n\0ul"}) {
        block.U16(static_cast<uint32_t>(text.size()));
        block.Utf16(text);
    }
    block.U16(9); // longer than the block
    block.Utf16(u"beyond");
    ResourceFile file(pe::builder::ResourceTable{{{.type = uint16_t{6}, .name = uint16_t{7}, .data = block.Take()}}});
    EXPECT_TRUE(file.HasText(6, 97, "\xF0\x9F\x98\x80") && file.HasText(6, 98, "abc", 7) && file.HasText(6, 96, ""));
    EXPECT_FALSE(file.HasText(6, 98, "ab") || file.HasText(6, 98, "abcd") || file.HasText(6, 98, "abc", 6));
    EXPECT_FALSE(file.HasText(6, 2, "abc") || file.HasText(6, 100, "beyond") || file.HasText(6, 101, ""));
    EXPECT_TRUE(file.HasText(kAnyResource, 98, "abc")) << "the resource's own type says how it is read";
}

} // namespace
} // namespace tavrik::tests
