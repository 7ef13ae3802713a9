// Bounds and contents of payloads: made by hand, by makensis, truncated and damaged.

#include <chrono>
#include <cstdlib>
#include <map>

#include <gtest/gtest.h>

#include "scanner/payloads/container.h"
#include "scanner/payloads/extent.h"
#include "scanner/payloads/inflate.h"
#include "scanner/payloads/lzma.h"
#include "tavrik2/payload_locator.h"
#include "tests/support/fresh_folder.h"
#include "tests/support/payload_builder.h"

namespace {

using namespace tavrik;
using namespace tavrik::scanner::payloads;
using namespace tavrik::tests;

std::span<const uint8_t> BytesOf(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

struct ReadMember {
    Member member;
    std::string bytes;
    std::string error;
};

struct Contents {
    std::vector<ReadMember> members;
    std::string error;
    std::map<std::string, std::string> Files() const {
        std::map<std::string, std::string> files;
        for (const ReadMember &read : members)
            files[read.member.path] = read.bytes;
        return files;
    }
};

// All that is in a payload, read in pieces of that many bytes; of one member at most `most`.
Contents ContentsOf(base::ByteSource &source, const Extent &extent, std::size_t piece = 4096,
                    std::size_t most = SIZE_MAX) {
    const std::unique_ptr<Container> container = OpenPayload(source, extent);
    Contents contents;
    std::string buffer(piece, '\0');
    while (std::optional<Member> member = container->Next()) {
        std::string bytes;
        while (const std::size_t count = container->Read(buffer.data(), buffer.size())) {
            bytes.append(buffer, 0, count);
            if (bytes.size() >= most)
                break;
        }
        contents.members.push_back({std::move(*member), std::move(bytes), container->member_error()});
    }
    contents.error = container->error();
    return contents;
}

// Text that compresses a little: words in an order without a pattern.
std::string Noise(std::size_t length) {
    std::string text;
    uint32_t state = 1;
    while (text.size() < length) {
        state = state * 1664525 + 1013904223;
        text += static_cast<char>(state >> 24);
    }
    return text;
}

const ScriptFile kScript = {">>>AUTOIT SCRIPT<<<", "C:\\Temp\\aut1.tmp", "\x01\x02 tokens, tokens, tokens"};
const ScriptFile kOldScript = {">AUTOIT SCRIPT<", "C:\\Temp\\aut1.tmp", "MsgBox(0, 'a', 'a')\r\n"};
const ScriptFile kEmbedded = {"data\\x.bin", "C:\\work\\data\\x.bin", "as it is", false};

std::string WithMarker(std::string archive, const std::string &head) {
    return archive.replace(0, head.size(), head);
}

InstallerParts SmallInstaller() {
    // SetOutPath "$INSTDIR\d"; File "a.txt"; File "b.txt", which is in the next block.
    return {std::string("\0\x03\x95\x80\\d\0a.txt\0b.txt\0", 19),
            "",
            {{11, 1, 1}, {20, 0, 7, 0, 0x479E2A00, 0x01DD7B54}, {20, 0, 13, 9, 0, 0}},
            Little(5, 4) + "hello" + Little(2, 4) + "ho"};
}

/** A payload and what is to be said about it. */
struct Sample {
    const char *name;
    Format format;
    uint32_t kind;
    std::string bytes;
    std::string description;
    bool is_encrypted = false;
    bool is_open_ended = false; // its end is where the source's is, or where no block follows
};

std::vector<Sample> Samples() {
    const std::string file = Rar4File("a.txt", "some text", 29);
    const std::string encrypted_record = Hex("04 01 00 00 0F"); // size, type, and what is not looked at
    return {
        {"cabinet", Format::Cabinet, PAYLOAD_CABINET, Cabinet(120), "cabinet"},
        {"second cabinet", Format::Cabinet, PAYLOAD_CABINET, Cabinet(90, 1), "cabinet, part 2 of a set"},
        {"rar 4", Format::Rar, PAYLOAD_RAR, Rar4Main() + file + Rar4File("b", "x", 29, 0x100) + kRar4End, "RAR 4"},
        {"rar 4, password", Format::Rar, PAYLOAD_RAR, Rar4Main() + Rar4File("a", "xyz", 29, 4) + kRar4End, "RAR 4",
         true},
        {"rar 4, headers", Format::Rar, PAYLOAD_RAR, Rar4Main(0x80) + "????", "RAR 4, encrypted headers", true, true},
        {"rar 2", Format::Rar, PAYLOAD_RAR, Rar4Main() + Rar4File("a", "text", 20), "RAR 4", false, true},
        {"rar 5", Format::Rar, PAYLOAD_RAR, kRar5Main + Rar5File("a.txt", "some text") + kRar5End, "RAR 5"},
        {"rar 5, password", Format::Rar, PAYLOAD_RAR, kRar5Main + Rar5File("a", "text", encrypted_record) + kRar5End,
         "RAR 5", true},
        {"rar 5, headers", Format::Rar, PAYLOAD_RAR, kRar5 + Rar5Block(Hex("04 00 00 00 0F")) + "????",
         "RAR 5, encrypted headers", true, true},
        {"script", Format::AutoIt, PAYLOAD_AUTOIT, ScriptArchive(kEA06Build, {kScript, kEmbedded}), "AutoIt EA06"},
        {"old script", Format::AutoIt, PAYLOAD_AUTOIT, ScriptArchive(kEA05Build, {kOldScript, kEmbedded}),
         "AutoIt EA05"},
        {"altered script", Format::AutoIt, PAYLOAD_AUTOIT,
         WithMarker(ScriptArchive(kEA06Build, {kScript}), kAlteredHeaders[0].substr(0, 24)), "AutoIt EA06"},
        {"script with another marker", Format::AutoIt, PAYLOAD_AUTOIT,
         WithMarker(ScriptArchive(kEA06Build, {kScript}), "?\?\?\?" + kNullsoft), "AutoIt EA06"},
        {"unknown script", Format::AutoIt, PAYLOAD_AUTOIT, kMarker + "AU3!EA07" + Noise(300) + "AU3!EA07",
         "AutoIt EA07, unknown script build"},
        {"installer", Format::Nsis, PAYLOAD_NULLSOFT, Installer(SmallInstaller()), "NSIS 3 ANSI, not compressed"},
    };
}

TEST(PayloadExtents, AreExactWhereverThePayloadIs) {
    for (const Sample &sample : Samples()) {
        SCOPED_TRACE(sample.name);
        EXPECT_EQ(FormatOf(sample.kind), sample.format);
        const std::string file =
            std::string(100, 'M') + sample.bytes + (sample.is_open_ended ? "" : std::string(50, 'T'));
        base::MemorySource source(BytesOf(file));
        const Extent expected = {sample.format, sample.description, 100, sample.bytes.size(), sample.bytes.size(),
                                 true,          sample.is_encrypted};
        EXPECT_EQ(ReadExtent(source, sample.format, 100), expected);
        EXPECT_EQ(ReadExtentAt(source, 100), expected);
        EXPECT_EQ(ReadExtentAt(source, 99), std::nullopt);
        EXPECT_EQ(ReadExtentAt(source, 104), std::nullopt);
        if (sample.format == Format::Nsis) {
            EXPECT_EQ(ReadExtent(source, sample.format, 104), expected); // its marker
        }
    }
}

TEST(PayloadExtents, TruncatedPayloadsAreLongerThanWhatIsThere) {
    for (const Sample &sample : Samples()) {
        std::size_t told = 0;
        for (std::size_t length = 0; length < sample.bytes.size() && !sample.is_open_ended; ++length) {
            SCOPED_TRACE(sample.name + std::string(", bytes: ") + std::to_string(length));
            const std::string cut = sample.bytes.substr(0, length);
            base::MemorySource source(BytesOf(cut));
            const std::optional<Extent> extent = ReadExtentAt(source, 0);
            if (!extent)
                continue;
            ++told;
            EXPECT_EQ(extent->present, length);
            EXPECT_GT(extent->length, length);
            EXPECT_FALSE(extent->complete);
            const Contents contents = ContentsOf(source, *extent);
            const bool is_said =
                !contents.error.empty() ||
                std::ranges::any_of(contents.members, [](const ReadMember &member) { return !member.error.empty(); });
            EXPECT_TRUE(is_said || length + 8 >= sample.bytes.size()); // only the closing tag is missing
        }
        if (!sample.is_open_ended && sample.description.find("unknown") == std::string::npos) {
            EXPECT_GT(told, sample.bytes.size() / 8) << sample.name;
        }
    }
}

TEST(PayloadExtents, DamagedBytesNeitherCrashNorRunAway) {
    for (const Sample &sample : Samples())
        for (std::size_t place = 0; place < sample.bytes.size(); ++place)
            for (const int change : {0x01, 0x80, 0xFF}) {
                std::string damaged = sample.bytes;
                damaged[place] = static_cast<char>(damaged[place] ^ change);
                base::MemorySource source(BytesOf(damaged));
                const Extent whole = {sample.format, "", 0, damaged.size(), damaged.size(), true, false};
                const Extent extent = ReadExtentAt(source, 0).value_or(whole);
                EXPECT_LE(extent.present, damaged.size());
                const Contents contents = ContentsOf(source, extent, 4096, 1 << 16);
                EXPECT_LT(contents.members.size(), 10u) << sample.name << " at " << place;
            }
}

TEST(CompiledScripts, GiveBackWhatWentIn) {
    const std::string noise = Noise(3000);
    // Matches of every length, across the window's end; and the same bytes again, beyond it.
    const std::string text =
        noise + std::string(70000, 'a') + noise + "ab" + std::string(300, 'b') + noise.substr(0, 12);
    for (const ScriptBuild &build : {kEA06Build, kEA05Build}) {
        const ScriptFile script = {build.is_ea06 ? kScript.kind : kOldScript.kind, "C:\\t.tmp", text};
        const ScriptFile without_time = {"<<<", "", "", false, 0};
        const ScriptFile marker = {">>>AUTOIT NO CMDEXECUTE<<<", "C:\\t.tmp", "", false};
        const std::string archive = ScriptArchive(build, {script, marker, kEmbedded, without_time});
        if (build.is_ea06) {
            EXPECT_EQ(archive.substr(40, kPatternA.size()), kPatternA); // what locators know such scripts by
        }
        base::MemorySource source(BytesOf(archive));
        for (const std::size_t piece : {1u, 65536u}) {
            const Contents contents = ContentsOf(source, *ReadExtentAt(source, 0), piece);
            EXPECT_EQ(contents.error, "");
            ASSERT_EQ(contents.members.size(), 4u);
            const std::vector<ReadMember> &members = contents.members;
            EXPECT_EQ(members[0].member.path, build.is_ea06 ? "script.a3s" : "script.au3");
            EXPECT_EQ(members[0].bytes, text);
            EXPECT_EQ(members[0].member.size, text.size());
            EXPECT_LT(members[0].member.packed_size, text.size());
            EXPECT_EQ(members[0].member.time, 1795442980);
            EXPECT_EQ(members[1].member.path, "AUTOIT NO CMDEXECUTE");
            EXPECT_EQ(members[2].member.path, "C:\\work\\data\\x.bin");
            EXPECT_EQ(members[2].bytes, "as it is");
            EXPECT_EQ(members[3].member.path, "unnamed");
            EXPECT_EQ(members[3].member.time, std::nullopt);
            for (const ReadMember &member : members)
                EXPECT_EQ(member.error, "");
        }
    }
}

TEST(CompiledScripts, DamagedFilesAreNamed) {
    std::string archive = ScriptArchive(kEA06Build, {kScript, kEmbedded});
    ++archive[archive.find(Encrypted(kEA06Build, kEmbedded.bytes, kEA06Build.data_seed))];
    base::MemorySource source(BytesOf(archive));
    const Contents contents = ContentsOf(source, *ReadExtentAt(source, 0));
    ASSERT_EQ(contents.members.size(), 2u);
    EXPECT_EQ(contents.members[0].error, "");
    EXPECT_NE(contents.members[1].error, "");
}

TEST(Deflate, StoredBlocksHaveTheirLengthOnceOrTwice) {
    const std::string data = "stored\n";
    const std::string plain = Little(data.size(), 2);
    const std::string twice = plain + Little(data.size() ^ 0xFFFFu, 2);
    const std::string fixed = Hex("4B 04 00"); // "a"
    const auto inflate = [](const std::string &stream, std::string &error) {
        base::MemorySource source(BytesOf(stream));
        Inflate decoder(Input(source, 0, stream.size()));
        std::string out(100, '\0');
        out.resize(ReadFully(decoder, out.data(), out.size()));
        error = decoder.error();
        return out;
    };
    std::string error;
    for (const std::string &length : {plain, twice}) {
        const std::string stream =
            std::string(1, '\0').append(length).append(data).append(1, '\0').append(length).append(data) + fixed;
        EXPECT_EQ(inflate(stream, error), data + data + "a");
        EXPECT_EQ(error, "");
        for (std::size_t cut = 0; cut < stream.size(); ++cut) {
            EXPECT_TRUE((data + data + "a").starts_with(inflate(stream.substr(0, cut), error)));
            EXPECT_NE(error, "") << cut;
        }
    }
    // Having seen the complement once, it has to be there again.
    EXPECT_EQ(inflate('\0' + twice + data + '\0' + plain + data, error), data);
    EXPECT_NE(error, "");
    for (const char *const damaged :
         {"07", "04 FF FF", "4B 04 42"}) // no such type, codes that do not add up, a far match
        EXPECT_TRUE(inflate(Hex(damaged), error).size() <= 1 && !error.empty()) << damaged;
}

/** Units of a string of a script, wide or not, with a final 0. */
std::string Units(std::initializer_list<uint32_t> units, int width) {
    std::string bytes;
    for (const uint32_t unit : units)
        bytes += Little(unit, width);
    return bytes + Little(0, width);
}

TEST(InstallerScripts, NamesAreReadInEveryDialect) {
    constexpr uint32_t kLanguageString = 0xFFFFFFFF; // the first
    struct Row {
        const char *version;
        int width;
        std::initializer_list<uint32_t> folder; // of SetOutPath
        std::initializer_list<uint32_t> name;
        std::string folder_path;
        std::string path;
    };
    const Row rows[] = {
        {"NSIS 3 ANSI", 1, {3, 0x95, 0x80, '\\', 's'}, {'a', 0xE9, 0x80}, "$INSTDIR/s", "$INSTDIR/s/a\u00E9\u20AC"},
        {"NSIS 3 ANSI", 1, {3, 0x95, 0x80}, {4, 3, 'x'}, "$INSTDIR", "$INSTDIR/\x03x"},
        {"NSIS 3 ANSI", 1, {3, 0x95, 0x80}, {3, 0x80, 0x80, 'x'}, "$INSTDIR", "$INSTDIR/$0x"},
        {"NSIS 3 ANSI", 1, {3, 0x95, 0x80}, {3, 0x97, 0x80, '\\', 'x'}, "$INSTDIR", "$EXEDIR/x"},
        {"NSIS 2 ANSI", 1, {0xFD, 0x9A, 0x80}, {0xFC, 0xFD, 'x'}, "$PLUGINSDIR", "$PLUGINSDIR/\u00FDx"},
        {"NSIS 2 ANSI", 1, {0xFD, 0x8B, 0x80}, {'x', 0xFD, 0xA3, 0x80}, "$R1", "$R1/x$_3_"},
        {"NSIS 3 Unicode",
         2,
         {3, 0x8099, '/', 'd'},
         {0xD83D, 0xDE00, 0xD800, 'x'},
         "$TEMP/d",
         "$TEMP/d/\U0001F600\uFFFDx"},
        {"NSIS 3 Unicode", 2, {3, 0x8095}, {'D', ':', '\\', 'x'}, "$INSTDIR", "D:/x"},
        {"NSIS 2 Unicode", 2, {0xE001, 0x8015}, {0xE000, 0xE001, 'x'}, "$INSTDIR", "$INSTDIR/\uE001x"},
        {"NSIS Unicode", 2, {2, 0x231A, '\\', 'x'}, {'$', 'y'}, "$APPDATA/x", "$APPDATA/x/$y"},
        {"NSIS ANSI", 1, {2, 0x81, 0x2B}, {'z'}, "$PROGRAMFILES", "$PROGRAMFILES/z"}, // by the registry value at 1
        {"NSIS ANSI", 1, {2, 0xC1, 0x2B}, {1, 0x80, 0x80}, "$PROGRAMFILES64", "$PROGRAMFILES64/y"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.path);
        std::string strings = Units({}, row.width);
        const auto place = [&](const std::string &string) {
            const std::size_t at = strings.size();
            strings += string;
            return static_cast<uint32_t>(at / static_cast<std::size_t>(row.width));
        };
        std::string value = "ProgramFilesDir";
        value += '\0';
        place(value);
        const uint32_t folder = place(Units(row.folder, row.width));
        const uint32_t name = place(Units(row.name, row.width));
        const uint32_t y = place(Units({'y'}, row.width));
        InstallerParts parts = {strings, Little(y, 4), {{11, folder, 1}, {20, 0, name}}, Little(2, 4) + "ok"};
        // The same file again, and one by a string of the language.
        parts.instructions.push_back(parts.instructions.back());
        parts.instructions.push_back({20, 0, kLanguageString, 0, 0xFFFFFFFF, 0xFFFFFFFF});
        const std::string installer = Installer(parts);
        base::MemorySource source(BytesOf(installer));
        const std::optional<Extent> extent = ReadExtentAt(source, 0);
        ASSERT_TRUE(extent.has_value());
        EXPECT_EQ(extent->description, row.version + std::string(", not compressed"));
        const Contents contents = ContentsOf(source, *extent);
        EXPECT_EQ(contents.error, "");
        std::map<std::string, std::string> expected = {{row.path, "ok"}, {row.folder_path + "/y", "ok"}};
        EXPECT_EQ(contents.Files(), expected);
        EXPECT_EQ(contents.members.size(), expected.size());
    }
}

TEST(InstallerScripts, SolidStreamsOfStoredBlocksAreRecognised) {
    InstallerParts parts = SmallInstaller();
    parts.instructions[2][3] = 9 + 4 + 40000; // after a block that no file has
    parts.blocks.insert(9, Little(40000, 4) + Noise(40000));
    for (const bool has_complement : {false, true}) {
        const std::string installer = SolidInstaller(parts, has_complement);
        base::MemorySource source(BytesOf(installer));
        const std::optional<Extent> extent = ReadExtentAt(source, 0);
        ASSERT_TRUE(extent.has_value());
        EXPECT_EQ(extent->description, "NSIS 3 ANSI, zlib solid");
        const std::map<std::string, std::string> expected = {{"$INSTDIR/d/a.txt", "hello"}, {"$INSTDIR/d/b.txt", "ho"}};
        EXPECT_EQ(ContentsOf(source, *extent).Files(), expected);
    }
}

/** Installers that makensis makes. */
class MadeInstallers : public testing::Test {
protected:
    void SetUp() override {
#ifdef _WIN32
        GTEST_SKIP() << "makensis runs natively only";
#endif
        if (std::system("makensis -VERSION > version") != 0)
            GTEST_SKIP() << "makensis is missing: install the package nsis";
        std::string text;
        for (int line = 0; line < 3000; ++line)
            text += "line " + std::to_string(line * line) + "\r\n";
        const std::pair<const char *, std::string> inputs[] = {
            {"a.txt", "hello\n"},      {"empty", ""},
            {"sub/a.txt", "hello\n"},  {"sub/deep/text.txt", text},
            {"large", Noise(1100000)}, {"zeros", std::string(5 << 20, '\0')},
            {"sub/left.skip", "no"}};
        for (const auto &[path, bytes] : inputs) {
            Write(std::filesystem::path("in") / path, bytes);
            if (!std::string_view(path).ends_with(".skip"))
                expected_["$INSTDIR/" + std::string(path)] = bytes;
        }
        expected_["$INSTDIR/docs/read$1me.txt"] = "hello\n";
        expected_["$PLUGINSDIR/empty"] = "";
        expected_["$SMPROGRAMS/T/zeros.bin"] = std::string(5 << 20, '\0');
        Write("setup.nsi", R"(Unicode ${UNICODE}
Name "t"
OutFile setup.exe
SetCompressor ${SOLID} ${METHOD}
CRCCheck ${CRC}
InstallDir "$PROGRAMFILES\T"
Section
SetOutPath $INSTDIR
File /r /x *.skip in/*
SetOutPath $INSTDIR\docs
File /oname=read$1me.txt in/a.txt
SetOutPath $PLUGINSDIR
File in/empty
SetOutPath $SMPROGRAMS\T
File /oname=zeros.bin in/zeros
WriteUninstaller $INSTDIR\un.exe
SectionEnd
Section Uninstall
Delete $INSTDIR\a.txt
SectionEnd
)");
    }

    static std::string Make(bool is_unicode, bool is_solid, const std::string &method, bool has_crc) {
        const std::string command = std::string("makensis -V1 -DUNICODE=") + (is_unicode ? "true" : "false") +
                                    " -DSOLID=" + (is_solid ? "/SOLID" : "/FINAL") + " -DMETHOD=" + method +
                                    " -DCRC=" + (has_crc ? "on" : "off") + " setup.nsi > log";
        EXPECT_EQ(std::system(command.c_str()), 0) << ReadFile("log");
        return ReadFile("setup.exe");
    }

    // Where the archive begins: the flags are in front of the marker.
    static uint64_t BeginOf(const std::string &installer) {
        return installer.find(kNullsoft) - 4;
    }

    // A carved archive opens elsewhere, with the same files.
    static void CompareWithSevenZip(const std::string &carved, const Contents &contents) {
        Write("carved.nsis", carved);
        std::filesystem::remove_all("7z");
        ASSERT_EQ(std::system("7z x -y -o7z carved.nsis > log"), 0) << ReadFile("log");
        for (const ReadMember &read : contents.members) {
            const std::string &path = read.member.path;
            const std::string prefix = "$INSTDIR/";
            const std::string name = path.starts_with(prefix) ? path.substr(prefix.size()) : path;
            // The uninstaller is put together from the installer's program, which the carved archive is without.
            EXPECT_TRUE(name == "un.exe" || ReadFile("7z/" + name) == read.bytes) << name;
        }
    }

    FreshFolder folder_;
    std::map<std::string, std::string> expected_;
};

TEST_F(MadeInstallers, ListAndUnpackToWhatWentIn) {
    const bool has_seven_zip = std::system("7z i > log") == 0;
    for (int variant = 0; variant < 8; ++variant) {
        const bool is_unicode = (variant & 1) != 0;
        const bool is_solid = (variant & 2) != 0;
        const bool is_lzma = (variant & 4) != 0;
        if (is_lzma && !kReadsLzma)
            continue;
        const std::string file = Make(is_unicode, is_solid, is_lzma ? "lzma" : "zlib", variant != 3);
        const std::string description = std::string("NSIS 3 ") + (is_unicode ? "Unicode, " : "ANSI, ") +
                                        (is_lzma ? "LZMA" : "zlib") + (is_solid ? " solid" : "");
        SCOPED_TRACE(description);
        base::MemorySource source(BytesOf(file));
        const uint64_t begin = BeginOf(file);
        const std::optional<Extent> extent = ReadExtent(source, Format::Nsis, begin + 4);
        ASSERT_TRUE(extent.has_value());
        const uint64_t length = file.size() - begin;
        EXPECT_EQ(*extent, (Extent{Format::Nsis, description, begin, length, length, true, false}));

        const Contents contents = ContentsOf(source, *extent, 50000);
        EXPECT_EQ(contents.error, "");
        std::map<std::string, std::string> files = contents.Files();
        // The uninstaller is a program with a payload of its own.
        const std::string uninstaller = files["$INSTDIR/un.exe"];
        files.erase("$INSTDIR/un.exe");
        base::MemorySource inner(BytesOf(uninstaller));
        const std::optional<Extent> inner_extent = ReadExtentAt(inner, BeginOf(uninstaller));
        ASSERT_TRUE(inner_extent.has_value());
        EXPECT_EQ(inner_extent->offset, begin);
        EXPECT_EQ(inner_extent->offset + inner_extent->present, uninstaller.size());
        EXPECT_EQ(ContentsOf(inner, *inner_extent).error, "");
        EXPECT_TRUE(files == expected_);
        const auto now =
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
        for (const ReadMember &read : contents.members) {
            EXPECT_EQ(read.error, "");
            EXPECT_EQ(read.member.size.value_or(read.bytes.size()), read.bytes.size()) << read.member.path;
            EXPECT_TRUE(!read.member.time || std::abs(*read.member.time - now.count()) < 3600) << read.member.path;
        }
        if (has_seven_zip)
            CompareWithSevenZip(file.substr(begin), contents);
    }
}

TEST_F(MadeInstallers, TruncatedOnesGiveWhatIsThere) {
    for (const bool is_solid : {false, true}) {
        const std::string whole = Make(true, is_solid, "zlib", true);
        const std::string cut = whole.substr(0, whole.size() - 600000); // within the large file
        base::MemorySource source(BytesOf(cut));
        const Contents contents = ContentsOf(source, *ReadExtentAt(source, BeginOf(cut)), 50000);
        EXPECT_EQ(contents.members.size(), expected_.size() + 1);
        std::size_t intact = 0;
        std::size_t damaged = 0;
        for (const ReadMember &read : contents.members) {
            damaged += !read.error.empty();
            intact += read.error.empty();
            if (read.error.empty()) {
                EXPECT_TRUE(expected_[read.member.path] == read.bytes) << read.member.path;
            }
        }
        EXPECT_GE(intact, 3u);
        EXPECT_GE(damaged, 3u);
    }
    const std::string other = Make(true, true, "bzip2", true);
    base::MemorySource source(BytesOf(other));
    const std::optional<Extent> extent = ReadExtentAt(source, BeginOf(other));
    ASSERT_TRUE(extent.has_value());
    EXPECT_EQ(extent->description, "NSIS, bzip2 solid");
    EXPECT_NE(ContentsOf(source, *extent).error.find("7z x opens it"), std::string::npos);
}

} // namespace
