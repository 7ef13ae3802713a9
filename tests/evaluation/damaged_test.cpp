// Structures that the file ends one byte too early for, and others that are not what they seem.
#include <functional>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "pe/builder/builder.h"
#include "pe/manifest.h"
#include "pe/version_info.h"
#include "tests/support/rule_check.h"

namespace tavrik::tests {
namespace {

using base::Bytes;
using base::ByteWriter;

constexpr uint32_t kSectionAddress = 0x1000; // of the section

/** A file whose only section holds these bytes, at an address that a directory has, and ends with them. */
Bytes FileEndingWith(const Bytes &content, pe::Directory directory, uint32_t place) {
    pe::builder::PeImage image;
    image.headers.AddressOfEntryPoint = 0;
    image.sections.push_back({.name = ".data", .VirtualAddress = kSectionAddress, .pieces = {{content}}});
    image.directories[directory] = {kSectionAddress + place, 40};
    const pe::builder::PeFile file = image.Build();
    Bytes bytes = file.bytes;
    bytes.resize(file.OffsetOf(kSectionAddress) + content.size());
    return bytes;
}

/** Words of 32 bits; those above 0xFFFF0000 are offsets in the section plus that. */
constexpr uint32_t kAt = 0xFFFF0000;

void PutWords(ByteWriter &content, uint32_t place, std::initializer_list<uint32_t> words) {
    content.FillTo(place);
    for (const uint32_t word : words)
        content.U32(word >= kAt ? word - kAt + kSectionAddress : word);
}

Bytes Imports(char last) {
    // The part that is last in the file: a descriptor, a thunk or a name.
    const uint32_t name = last == 'n' ? 0x80 : 0x20;
    const uint32_t thunk = last == 't' ? 0x80 : 0x10;
    const uint32_t descriptor = last == 'd' ? 0x80 : 0x40;
    std::map<uint32_t, std::function<void(ByteWriter &)>> parts = {
        {name, [](ByteWriter &content) { content.Text(std::string("\0\0Func", 6)); }},
        {thunk, [name](ByteWriter &content) { content.U32(kSectionAddress + name); }},
        {descriptor, [=](ByteWriter &content) {
             for (const uint32_t word : {kSectionAddress + thunk, 0u, 0u, kSectionAddress, kSectionAddress + thunk})
                 content.U32(word);
         }}};
    ByteWriter content;
    content.Text("a.dll");
    for (const auto &[place, put] : parts) {
        content.FillTo(place);
        put(content);
    }
    return FileEndingWith(content.Take(), pe::kImportDirectory, descriptor);
}

Bytes Exports(char last) {
    const uint32_t directory = last == 'd' ? 0x80 : 0x40;
    const uint32_t names = last == 'p' ? 0x80 : 0x10;
    ByteWriter content;
    const auto put = [&](uint32_t place, std::initializer_list<uint32_t> words) { PutWords(content, place, words); };
    content.Text("Func");
    if (last == 'd')
        put(names, {kAt});
    put(directory, {0, 0, 0, kAt, 1, 1, 1, 0, kAt + names, 0});
    if (last == 'p')
        put(names, {kAt});
    return FileEndingWith(content.Take(), pe::kExportDirectory, directory);
}

Bytes Resources(char last) {
    constexpr uint32_t kFlag = pe::resource_directory::kFlag;
    const uint32_t label = last == 'l' ? 0xA0 : 0x80;
    const uint32_t data = last == 'l' ? 0x80 : 0x90;
    ByteWriter content;
    PutWords(content, 0, {0, 0, 0, 0x10000, 10, kFlag | 0x20});
    PutWords(content, 0x20, {0, 0, 0, 1, kFlag | label, kFlag | 0x40});
    PutWords(content, 0x40, {0, 0, 0, 0x10000, 0x409, data});
    const auto put_label = [&] {
        content.FillTo(label);
        content.U16(2);
        content.Utf16(u"ab");
    };
    if (last != 'l')
        put_label();
    PutWords(content, data, {kAt, 4, 0, 0});
    if (last == 'l') {
        put_label();
        Bytes bytes = content.Take();
        bytes.resize(label + 6); // the name has no NUL
        return FileEndingWith(bytes, pe::kResourceDirectory, 0);
    }
    return FileEndingWith(content.Take(), pe::kResourceDirectory, 0);
}

Bytes ClrHeader() {
    ByteWriter content;
    PutWords(content, 0, {72, 0, 0, 0, 1});
    return FileEndingWith(content.Take(), pe::kClrDirectory, 0);
}

Bytes SectionTable() {
    pe::builder::PeImage image;
    image.headers.AddressOfEntryPoint = 0;
    image.sections = {{.name = ".one", .pieces = {{Bytes(1)}}}, {.name = ".two", .pieces = {{Bytes(1)}}}};
    Bytes bytes = image.Build().bytes;
    uint32_t lfanew = 0;
    std::copy_n(bytes.begin() + pe::kLfanewOffset, 4, reinterpret_cast<uint8_t *>(&lfanew));
    bytes.resize(lfanew + pe::kOptionalHeaderOffset + pe::WholeOptionalHeaderSize(false) + 2 * sizeof(SectionHeader));
    return bytes;
}

TEST(Damaged, AFileThatEndsOneByteEarlyLacksTheLastStructure) {
    struct Case {
        const char *what;
        Bytes file;
        const char *lost; // met by the whole file alone
        const char *kept; // met by both
    };
    const Case cases[] = {
        {"import descriptor", Imports('d'), "header { ImportModuleCount == 1 }", "header { ImportTable.Size == 40 }"},
        {"thunk", Imports('t'), "header { ImportFunctionCount == 1 }", "import_modules { \"a.dll\" }"},
        {"imported name", Imports('n'), "import_functions { any \"Func\" }", "header { ImportFunctionCount == 1 }"},
        {"export directory", Exports('d'), "header { ExportNameCount == 1 }", "header { ExportTable.Size == 40 }"},
        {"place of an exported name", Exports('p'), "export_functions { \"Func\" }", "export_module { \"Func\" }"},
        {"data entry", Resources('d'), "resources { RCDATA[\"ab\"] crc32 0x2144DF1C }", "resources { RCDATA[\"ab\"] }"},
        {"label", Resources('l'), "resources { RCDATA[\"AB\"] }", "header { ResourceCount == 1 }"},
        {"CLR flags", ClrHeader(), "header { CLRRuntimeHeader.Flags == 1 }", "header { CLRRuntimeHeader.Size == 40 }"},
        {"section header", SectionTable(), "section_names { last == \".two\" }", "section_names { [0] == \".one\" }"},
    };
    for (const Case &each : cases) {
        Bytes cut = each.file;
        cut.pop_back();
        EXPECT_TRUE(Holds(each.file, each.lost) && Holds(each.file, each.kept)) << each.what;
        EXPECT_FALSE(Holds(cut, each.lost)) << each.what;
        EXPECT_TRUE(Holds(cut, each.kept)) << each.what;
    }
    // Of a data entry 8 bytes were enough to be read, and are not enough to count.
    Bytes entry = Resources('d');
    entry.resize(entry.size() - 8);
    Check(entry, {{"resources { RCDATA[\"ab\"] crc32 0x2144DF1C }", false}, {"resources { RCDATA[\"ab\"] }", true}});
}

TEST(Damaged, AFunctionThatIsCalledLikeAnOrdinalIsNone) {
    const auto file = [](const pe::builder::ImportedFunction &function) {
        pe::builder::PeImage image;
        image.headers.AddressOfEntryPoint = 0;
        image.sections.push_back({.name = ".idata", .pieces = {{pe::builder::ImportTable{{{"a.dll", {function}}}}}}});
        return image.Build().bytes;
    };
    Check(file(uint16_t{3}),
          {{"import_functions { any \"#3\" }", true}, {"import_functions { any != \"#3\" }", false}});
    Check(file("#3"), {{"import_functions { any \"#3\" }", false},
                       {"import_functions { any != \"#3\" }", true},
                       {"header { ImportFunctionCount == 1 }", true}});
    Check(file("#x3"), {{"import_functions { any \"#x3\" }", true}});
    Check(file("#"), {{"import_functions { any \"#\" }", true}});
}

TEST(Damaged, AVersionBlockWithoutAWholeKeyIsNone) {
    pe::builder::VersionInfo info;
    info.strings = {{u"CompanyName", u"Acme"}, {u"Odd", u"abc"}, {u"ProductName", u"Anvil"}};
    const Bytes whole = info.Lay();
    const pe::VersionInfo all = pe::ReadVersionInfo(whole);
    ASSERT_EQ(all.strings.size(), 3u);
    // Whatever is cut off, no key is one that the resource does not have, and a text is the beginning of one.
    std::size_t before = 0;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const pe::VersionInfo cut = pe::ReadVersionInfo({whole.data(), length});
        EXPECT_TRUE(cut.strings.size() == before || cut.strings.size() == before + 1) << length;
        before = cut.strings.size();
        for (std::size_t i = 0; i < cut.strings.size(); ++i) {
            EXPECT_EQ(cut.strings[i].first, all.strings[i].first) << length;
            EXPECT_TRUE(all.strings[i].second.starts_with(cut.strings[i].second)) << length;
        }
    }
    // A key without an end: the block is none, those after it count.
    const auto at = [&whole](std::u16string_view text) {
        const auto *begin = reinterpret_cast<const uint8_t *>(text.data());
        return static_cast<std::size_t>(std::search(whole.begin(), whole.end(), begin, begin + 2 * text.size()) -
                                        whole.begin());
    };
    Bytes endless = whole;
    std::size_t place = at(u"Odd");
    for (const std::size_t end = place - 6 + whole[place - 6]; place < end; place += 2)
        endless[place] = 'x';
    EXPECT_EQ(pe::ReadVersionInfo(endless).strings,
              (std::vector<std::pair<std::string, std::string>>{all.strings[0], all.strings[2]}));
    endless = whole;
    place = at(u"StringFileInfo");
    endless[place - 6] = 6 + 28; // the block ends before the key's NUL, and with it all strings
    endless[place - 5] = 0;
    EXPECT_TRUE(pe::ReadVersionInfo(endless).strings.empty());
    EXPECT_EQ(pe::ReadVersionInfo(endless).file_version, "1.0.0.0");
}

TEST(Damaged, ABrokenAttributeHidesNoneAfterIt) {
    enum : uint32_t { kName = 30, kVersion = 31 };
    struct Case {
        const char *tag;
        uint32_t key;
        std::optional<std::string_view> value;
    };
    const Case cases[] = {
        {"name=\"a version=\"1\"", kName, "a version="}, // its value ends at the next quote of its kind
        {"name=\"a version=\"1\"", kVersion, "1"},
        {"name=\"a version='1'", kName, std::nullopt}, // no quote ends it within the tag
        {"name=\"a version='1'", kVersion, "1"},
        {"name=a name='b'", kName, "b"}, // without a quote none has begun
        {"name= \"a\" version=\"1", kName, std::nullopt},
        {"name= \"a\" version=\"1", kVersion, std::nullopt},
        {"title=\"x name='b' \"", kName, "b"},          // between the quotes of another
        {"title=\"x> name='b'\"", kName, std::nullopt}, // the tag ends within them
        {"xname='a' name='b'", kName, "b"},
    };
    for (const Case &each : cases)
        EXPECT_EQ(pe::FindInManifest("<assemblyIdentity " + std::string(each.tag) + "/>", each.key), each.value)
            << each.tag;
}

TEST(Damaged, RichValuesNeedTheirWholeEnd) {
    const auto file = [](bool is_cut) {
        pe::builder::PeImage image;
        image.headers.AddressOfEntryPoint = 0;
        image.sections.push_back({.name = ".data", .pieces = {{Bytes(1)}}});
        ByteWriter stub;
        if (is_cut)
            stub.U32(0);
        for (const uint32_t word : {pe::rich::kStartMark ^ 7u, 7u, 7u, 7u, 0x12345u ^ 7u, 3u ^ 7u, pe::rich::kEndMark})
            stub.U32(word);
        if (!is_cut)
            stub.U32(7);
        image.dos_stub = stub.Take();
        return image.Build().bytes;
    };
    Check(file(false), {{"header { Rich.Key == 7 Rich.Count == 1 Rich.LastBuild == 0x12345 }", true}});
    // The key would be the PE signature.
    Check(file(true), {{"header { Rich.Offset >= 0 }", false}, {"header { e_lfanew == 0x60 }", true}});
}

} // namespace
} // namespace tavrik::tests
