// What tavrik-scan does with what is inside payloads and archives.
#include <algorithm>
#include <chrono>
#include <map>
#include <set>

#ifdef TAVRIK_HAS_ARCHIVE
#include <archive.h>
#include <archive_entry.h>
#endif
#include <nlohmann/json.hpp>

#include "samples/samples.h"
#include "tests/support/command.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

/** Runs tavrik-scan without its summary. */
Outcome Scan(const std::string &arguments, const std::string &before = "") {
    return Shell(before + "tavrik-scan -q " + arguments);
}

// Sanitizers map more memory than any bound allows.
#ifdef __SANITIZE_ADDRESS__
constexpr char kBoundMemory[] = "";
#else
constexpr char kBoundMemory[] = "ulimit -v 1500000; ";
#endif

/** The first sample whose file name begins like this. */
samples::Sample SampleOf(const std::string &name) {
    for (std::size_t index = 0; index < samples::SampleCount(); ++index)
        if (samples::Sample sample = samples::MakeSample(index); sample.file_name.starts_with(name))
            return sample;
    throw std::runtime_error("there is no sample " + name);
}

/** found.exe, with a payload, and archives around it. */
class Inside : public testing::Test {
protected:
    Inside() {
        const samples::Sample sample = SampleOf("entry07");
        Write("found.exe", sample.bytes);
        found_ = fmt::format(": entry 7: Nullsoft installer, offset {:#x}, length unknown\n", sample.finding->offset);
        MakeArchives("");
    }

    static void MakeArchives(const std::string &arguments) {
        const fs::path script = base::ProgramFolder() / "golden" / "make_archives.py";
        const Outcome made = Shell("python3 '" + script.string() + "' " + arguments);
        if (made.code != 0)
            throw std::runtime_error(made.err);
    }

    /** The line about found.exe as that of a file that ends like this. */
    std::string Line(const std::string &file) const { return file + found_; }

    FreshFolder folder_;
    std::string found_;
};

TEST_F(Inside, IsScannedAndCounted) {
    const std::pair<const char *, const char *> rows[] = {{"a.zip", "a.zip!in/found.exe"},
                                                          {"a.tar", "a.tar!in/found.exe"},
                                                          {"a.tar.gz", "a.tar.gz!in/found.exe"},
                                                          {"a.cab", "a.cab!found.exe"},
                                                          {"a.rar", "a.rar!found.exe"},
                                                          {"a5.rar", "a5.rar!found.exe"},
                                                          {"a.7z", "a.7z!found.exe"},
                                                          {"nested.zip", "nested.zip!deep/a.rar!b.tar!in/found.exe"}};
    Shell("7z a a.7z found.exe");
    for (const auto &[file, found] : rows) {
        const Outcome scan = Scan(file);
        EXPECT_EQ(scan.out, Line(found)) << scan.err;
        EXPECT_EQ(scan.code, 1);
        EXPECT_EQ(scan.err, "");
        EXPECT_EQ(Scan(std::string("--no-inside ") + file).out, "");
    }
    EXPECT_TRUE(Scan("found.exe.gz").out.starts_with("found.exe.gz!"));
    const std::vector<std::string> lines = Lines(Scan("--json --sha256 nested.zip").out);
    ASSERT_EQ(lines.size(), 6u);
    const char *const parents[] = {"",
                                   "nested.zip",
                                   "nested.zip!deep/a.rar",
                                   "nested.zip!deep/a.rar!b.tar",
                                   "nested.zip!deep/a.rar!b.tar",
                                   "nested.zip"};
    for (std::size_t index = 0; index < lines.size(); ++index)
        EXPECT_EQ(Json::parse(lines[index]).value("parent", ""), parents[index]) << lines[index];
    EXPECT_EQ(Json::parse(lines[3])["sha256"], Shell("sha256sum found.exe").out.substr(0, 64));
    EXPECT_EQ(Json::parse(lines[5])["size"], 0);
    const Outcome summary = Shell("tavrik-scan nested.zip");
    EXPECT_NE(summary.err.find(" with 5 files inside"), std::string::npos) << summary.err;
    EXPECT_NE(summary.err.find("1 payload in 1 file"), std::string::npos) << summary.err;
}

TEST_F(Inside, OfAnInstallerIsCarvedListedAndScanned) {
    Write("setup.nsi",
          "Name x\nOutFile setup.exe\nSetCompressor /SOLID lzma\nSection\nSetOutPath $INSTDIR\nFile found.exe\n"
          "File nested.zip\nSectionEnd\n");
    const Outcome made = Shell("makensis -V1 setup.nsi");
    ASSERT_EQ(made.code, 0) << "install the package nsis; " << made.err;
    const std::string installer = ReadFile("setup.exe");
    const std::string archive = installer.substr(installer.find("\xEF\xBE\xAD\xDENullsoftInst") - 4);
    // The archive of that installer after headers that an entry knows.
    const std::size_t marker = std::stoul(found_.substr(found_.find("0x")), nullptr, 16);
    Write("known.exe", ReadFile("found.exe").substr(0, marker - 4) + archive + "a signature");
    const Outcome scan = Scan("--carve out known.exe");
    const std::string place = fmt::format("offset {:#x}", marker - 4);
    EXPECT_EQ(scan.out, fmt::format("known.exe: entry 7: NSIS 3 Unicode, LZMA solid, {}, length {} (complete)\n"
                                    "known.exe: {} carved, {} bytes, to out/known.exe.{:#x}.nsis\n",
                                    place, archive.size(), place, archive.size(), marker - 4) +
                            Line("known.exe!$INSTDIR/found.exe") +
                            Line("known.exe!$INSTDIR/nested.zip!deep/a.rar!b.tar!in/found.exe"))
        << scan.err;
    const std::string carved = fmt::format("out/known.exe.{:#x}.nsis", marker - 4);
    EXPECT_EQ(ReadFile(carved), archive);
    Scan("--carve tail --carve-tail --no-inside known.exe");
    EXPECT_EQ(ReadFile(fmt::format("tail/known.exe.{:#x}.nsis", marker - 4)), archive + "a signature");
    EXPECT_EQ(Shell("7z x -oseven " + carved).code, 0);
    for (const char *file : {"found.exe", "nested.zip"})
        EXPECT_EQ(ReadFile(fs::path("seven") / file), ReadFile(file));
    for (const std::string &file : {carved, std::string("known.exe"), std::string("setup.exe")}) {
        const Outcome contents = Scan("contents --json " + file);
        std::map<std::string, uint64_t> sizes;
        const Json members = Json::parse(contents.out)["containers"][0]["members"];
        for (const Json &member : members)
            sizes[member["path"]] = member["size"];
        EXPECT_EQ(sizes["$INSTDIR/found.exe"], fs::file_size("found.exe")) << contents.out << contents.err;
        EXPECT_EQ(sizes.size(), 2u) << contents.out;
    }
    EXPECT_EQ(Scan("unpack -o files " + carved).code, 0);
    EXPECT_EQ(ReadFile("files/$INSTDIR/nested.zip"), ReadFile("nested.zip"));
    // The same without its last bytes.
    Write("cut.exe", ReadFile("known.exe").substr(0, marker - 4 + archive.size() - 5));
    EXPECT_NE(Scan("--no-inside cut.exe").out.find("(truncated, 5 bytes missing)"), std::string::npos);
}

#ifdef TAVRIK_HAS_ARCHIVE
/** Writes an archive of files; format and filter are the library's names, without a filter null. */
void WriteArchive(const std::string &file, const char *format, const char *filter,
                  const std::vector<std::pair<std::string, std::string>> &members) {
    const std::unique_ptr<archive, int (*)(archive *)> writer(archive_write_new(), archive_write_free);
    ASSERT_EQ(archive_write_set_format_by_name(writer.get(), format), ARCHIVE_OK);
    ASSERT_TRUE(filter == nullptr || archive_write_add_filter_by_name(writer.get(), filter) == ARCHIVE_OK);
    ASSERT_EQ(archive_write_open_filename(writer.get(), file.c_str()), ARCHIVE_OK);
    for (const auto &[name, bytes] : members) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry *)> entry(archive_entry_new(), archive_entry_free);
        archive_entry_set_pathname(entry.get(), name.c_str());
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
        ASSERT_EQ(archive_write_header(writer.get(), entry.get()), ARCHIVE_OK);
        ASSERT_EQ(archive_write_data(writer.get(), bytes.data(), bytes.size()), static_cast<la_ssize_t>(bytes.size()));
    }
    ASSERT_EQ(archive_write_close(writer.get()), ARCHIVE_OK);
}

TEST_F(Inside, IsScannedInEveryKindOfArchive) {
    const std::tuple<const char *, const char *, const char *> rows[] = {
        {"a.iso", "iso9660", nullptr}, {"a.cpio", "newc", nullptr},  {"a.xar", "xar", nullptr},
        {"a.tar.xz", "gnutar", "xz"},  {"a.tar.zst", "pax", "zstd"}, {"a.cpio.lz", "odc", "lzip"}};
    const std::string program = ReadFile("found.exe");
    for (const auto &[file, format, filter] : rows) {
        SCOPED_TRACE(file);
        WriteArchive(file, format, filter, {{"in/found.exe", program}, {"in/note.txt", "text"}});
        EXPECT_EQ(Scan(file).out, Line(std::string(file) + "!in/found.exe"));
        EXPECT_EQ(Scan(std::string("unpack ") + file + " -o files-" + file).code, 0);
        EXPECT_TRUE(ReadFile(std::string("files-") + file + "/in/found.exe") == program);
        EXPECT_TRUE(ReadFile(std::string("files-") + file + "/in/note.txt") == "text");
    }
    WriteArchive("a.deb", "arbsd", nullptr, {{"debian-binary", "2.0\n"}, {"data.tar.xz", ReadFile("a.tar.xz")}});
    EXPECT_EQ(Scan("a.deb").out, Line("a.deb!data.tar.xz!in/found.exe"));
}

// The library keeps a name of cpio in memory, and its length has 32 bits.
TEST_F(Inside, HasNoNamesThatFillTheMemory) {
    const std::string header = "070702" + std::string(104, '9') + std::string(40 << 20, '\0');
    Write("long.cpio", header);
    WriteArchive("long.cpio.gz", "raw", "gzip", {{"long.cpio", header}});
    for (const std::string file : {"long.cpio", "long.cpio.gz"}) {
        const Outcome outcome = Scan("contents " + file);
        EXPECT_EQ(outcome.code, 2) << outcome.out;
        EXPECT_NE(outcome.err.find("A header has more than 16777216 bytes"), std::string::npos) << outcome.err;
    }
}
#endif

/** A program with a payload in place of what is at the offset. */
std::string WithPayload(const base::Bytes &program, std::size_t offset, const std::string &payload) {
    std::string file(program.begin(), program.end());
    file.resize(std::max(file.size(), offset + payload.size()));
    return file.replace(offset, payload.size(), payload);
}

TEST_F(Inside, IsCarvedForOtherPrograms) {
    const std::tuple<const char *, const char *, const char *> rows[] = {{"entry38", "a.cab", "cab"},
                                                                         {"entry39", "a.rar", "rar"}};
    for (const auto &[entry, name, extension] : rows) {
        SCOPED_TRACE(name);
        const samples::Sample sample = SampleOf(entry);
        const std::string bytes = ReadFile(name);
        Write("x.exe", WithPayload(sample.bytes, sample.finding->offset, bytes) + "what follows");
        const std::string into = std::string("carved-") + name;
        EXPECT_EQ(Scan("--no-inside x.exe --carve " + into).code, 1);
        const std::string carved = fmt::format("{}/x.exe.{:#x}.{}", into, sample.finding->offset, extension);
        EXPECT_EQ(ReadFile(carved), bytes);
        std::string listed; // as the other program prints it
        const Json members = Json::parse(Scan("contents --json x.exe").out)["containers"][0]["members"];
        for (const Json &member : members)
            listed += fmt::format("Path = {}\nSize = {}\n", member["path"].get<std::string>(),
                                  member["size"].get<uint64_t>());
        EXPECT_EQ(Shell("7z l -ba -slt " + carved + " | grep -E '^(Path|Size) ='").out, listed);
    }
    // A build that no entry knows is no finding; its contents can be listed all the same.
    const uint32_t place = SampleOf("entry38").finding->offset;
    Write("unknown.exe", WithPayload(SampleOf("near-miss-cabinet").bytes, place, ReadFile("a.cab")));
    EXPECT_EQ(Scan("unknown.exe").out, "");
    EXPECT_TRUE(
        Scan("contents unknown.exe").out.starts_with(fmt::format("unknown.exe: cabinet, offset {:#x}, ", place)));
}

TEST_F(Inside, SaysWhatNeedsAPassword) {
    Shell("7z a -psecret locked.7z found.exe; 7z a -psecret -mhe=on names.7z found.exe");
    for (const char *file : {"locked.rar", "locked5.rar"}) {
        EXPECT_EQ(Scan(file).out, Line(std::string(file) + "!found.exe"));
        const std::vector<std::string> lines = Lines(Scan(std::string("--json ") + file).out);
        ASSERT_EQ(lines.size(), 4u);
        EXPECT_EQ(Json::parse(lines[3])["reason"]["code"], "encrypted") << lines[3];
    }
    for (const char *file : {"locked.rar", "locked5.rar", "locked.7z", "encrypted.zip"}) {
        EXPECT_NE(Scan(std::string("contents ") + file).out.find(".exe  (encrypted)\n"), std::string::npos) << file;
        const Outcome unpacked = Scan(std::string("unpack -o out ") + file);
        EXPECT_EQ(unpacked.code, 2);
        EXPECT_NE(unpacked.err.find(".exe: is encrypted; unpack it with its password"), std::string::npos) << file;
        EXPECT_FALSE(fs::exists("out/secret.exe"));
    }
    for (const char *file : {"names.rar", "names5.rar", "names.7z"})
        for (const char *command : {"", "contents ", "unpack -o out "}) {
            const std::string err = Scan(command + std::string(file)).err;
            EXPECT_EQ(Lines(err).size(), 1u) << err;
            EXPECT_NE(err.find("the names of its files are encrypted; unpack it with its password"), std::string::npos)
                << err;
        }
    const Json listed = Json::parse(Scan("contents --json names.rar").out);
    EXPECT_EQ(listed["containers"][0]["error"]["code"], "encrypted");
}

TEST_F(Inside, SaysWhatCouldNotBeScanned) {
    const Outcome damaged = Scan("--json damaged.zip");
    EXPECT_NE(damaged.out.find("cannot be unpacked"), std::string::npos) << damaged.out;
    EXPECT_EQ(damaged.code, 1) << "the other member is scanned";
    EXPECT_NE(Scan("--json encrypted.zip").out.find("is encrypted"), std::string::npos);
    const Outcome shallow = Scan("--inside-depth 2 nested.zip");
    EXPECT_EQ(shallow.out, "");
    EXPECT_EQ(Lines(shallow.err).size(), 1u) << shallow.err;
    EXPECT_NE(shallow.err.find("inside of more than 2 files"), std::string::npos) << shallow.err;
    EXPECT_NE(Scan("--json --max-size 20K a.zip").out.find("larger than"), std::string::npos);
}

TEST_F(Inside, EndsInTimeOnFilesThatGrowWithoutEnd) {
    MakeArchives("growing");
    const std::pair<const char *, const char *> rows[] = {
        {"zeros.bz2", "zeros.bz2: more than 250 bytes inside for each of the file's own; the rest is not scanned"},
        {"layers.zip", "layers.zip: more than 10000 files inside; the rest is not scanned"},
        {"names.tgz", "names.tgz: more than 10000 files inside; the rest is not scanned"},
        {"long.tgz", "long.tgz: more than 32 MiB of results inside; the rest is not scanned"},
        {"--inside-size 100M zeros.gz", "more than 104857600 bytes inside; the rest is not scanned"},
        {"--timeout 0.2 zeros.gz layers.zip", "took longer than 0.2 seconds"}};
    for (const auto &[arguments, words] : rows) {
        const auto start = std::chrono::steady_clock::now();
        const Outcome scan = Scan(arguments, kBoundMemory);
        EXPECT_NE(scan.err.find(words), std::string::npos) << arguments << scan.err;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60)) << arguments;
    }
}

TEST_F(Inside, IsListedAndUnpacked) {
    for (const char *file : {"a.zip", "a.tar", "a.tar.gz", "a.cab", "a.rar", "a5.rar"}) {
        const std::string into = std::string("out-") + file;
        const Outcome listed = Scan(std::string("contents --json ").append(file));
        EXPECT_EQ(listed.code, 0) << listed.err;
        const Json members = Json::parse(listed.out)["containers"][0]["members"];
        ASSERT_EQ(members.size(), 2u) << listed.out;
        const Outcome unpacked = Scan(std::string("unpack ") + file + " -o " + into);
        EXPECT_EQ(unpacked.code, 0) << unpacked.err;
        for (const Json &member : members) {
            const fs::path path = fs::path(into) / member["path"].get<std::string>();
            EXPECT_EQ(fs::file_size(path), member["size"].get<uint64_t>()) << path;
        }
        EXPECT_EQ(ReadFile(fs::path(into) / members[0]["path"].get<std::string>()), ReadFile("found.exe"));
    }
    EXPECT_EQ(Shell("TZ=UTC date -r out-a.tar/in/found.exe +%s").out, "1000000000\n");
    const Outcome table = Scan("contents a.tar");
    EXPECT_NE(table.out.find("2001-09-09T01:46:40Z  in/found.exe\n"), std::string::npos) << table.out;
    uint64_t bytes = 0;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator("out-a.tar"))
        bytes += entry.is_regular_file() ? entry.file_size() : 0;
    EXPECT_TRUE(table.out.ends_with(fmt::format("\n2 files, {} bytes\n", bytes))) << table.out;

    const Outcome hostile = Scan("unpack names.zip -o deep/er");
    EXPECT_EQ(hostile.code, 0) << hostile.err;
    std::set<std::string> names;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator("deep"))
        if (entry.is_regular_file())
            names.insert(fs::relative(entry.path(), "deep").string());
    EXPECT_EQ(names, (std::set<std::string>{"er/__/__/up", "er/etc/abs", "er/C_/drive", "er/same", "er/SAME.2",
                                            "er/_con.txt", "er/a_x1b[31mred"}));
    EXPECT_EQ(Scan("contents names.zip").out.find('\x1b'), std::string::npos);

    const Outcome bounded = Scan("unpack names.tgz -o few --files 3");
    EXPECT_EQ(bounded.code, 2);
    EXPECT_NE(bounded.err.find("more than 3 files inside"), std::string::npos) << bounded.err;
    EXPECT_EQ(std::distance(fs::directory_iterator("few"), fs::directory_iterator()), 3);
    for (const char *wrong : {"contents found.exe.missing", "contents .out", "unpack a.zip", "unpack a.zip -o ''",
                              "unpack a.zip -o found.exe", "unpack encrypted.zip -o e", "unpack damaged.zip -o d"})
        EXPECT_EQ(Scan(wrong).code, 2) << wrong;
    EXPECT_FALSE(fs::exists("d/x.exe"));
    EXPECT_TRUE(fs::exists("d/found.exe"));
}

} // namespace
} // namespace tavrik::tests
