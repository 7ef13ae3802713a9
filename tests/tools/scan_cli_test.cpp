// tavrik-scan on files that cannot be read, and on PE files that nobody here made.
#include <map>
#include <random>
#include <sys/stat.h>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/scan_command.h"

namespace tavrik::tests {
namespace {

using Json = nlohmann::json;

TEST_F(ScanCommand, ReportsErrorsAndGoesOn) {
    const std::string found = WriteSample("entry07", "found.exe");
    WriteSample("clean-minimal", "large.exe");
    fs::resize_file("large.exe", uint64_t{1} << 31); // a hole, which takes no room
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    fs::create_symlink("loop", "loop");
    fs::create_directory("folder");
    std::map<std::string, std::string> reasons = {{"missing", "no such file"},
                                                  {"pipe", "only regular files"},
                                                  {"loop", "loop of symbolic links"},
                                                  {"folder", "add -r"},
                                                  {"large.exe", "2147483648 bytes; files of 2 GiB and more"}};
    Write("locked", "MZ");
    fs::permissions("locked", fs::perms::none);
    if (!std::ifstream("locked")) // the superuser may read it all the same
        reasons["locked"] = "permission denied";
    std::string paths;
    for (const auto &[path, reason] : reasons)
        paths += path + ' ';
    const Outcome text = Scan(paths + "found.exe");
    EXPECT_EQ(text.code, 2);
    EXPECT_EQ(text.out, found);
    const std::vector<std::string> errors = Lines(text.err);
    const std::vector<std::string> objects = Lines(Scan("--json " + paths + "found.exe").out);
    ASSERT_EQ(errors.size(), reasons.size()) << text.err;
    ASSERT_EQ(objects.size(), reasons.size() + 1);
    std::size_t index = 0;
    for (const auto &[path, reason] : reasons) {
        EXPECT_EQ(errors[index].find("tavrik-scan: " + path + ": "), 0u) << errors[index];
        EXPECT_NE(errors[index].find(reason), std::string::npos) << errors[index];
        const Json object = Json::parse(objects[index++]);
        EXPECT_EQ(object["file"], path);
        EXPECT_EQ(object["status"], "error");
        EXPECT_NE(object["error"].get<std::string>().find(reason), std::string::npos) << object;
    }
}

TEST_F(ScanCommand, WalksFoldersInOrder) {
    const std::string kOdd = "top/c\nd\xFF.exe";
    WriteSample("entry07", "top/b/found.exe");
    WriteSample("clean-minimal", "top/a.exe");
    WriteSample("entry07", kOdd);
    fs::create_directory_symlink(fs::absolute("top"), "top/b/round");
    const Outcome scan = Scan("-r --json top");
    EXPECT_EQ(scan.code, 1);
    const std::vector<std::string> lines = Lines(scan.out);
    ASSERT_EQ(lines.size(), 3u) << scan.out;
    EXPECT_EQ(Json::parse(lines[0])["file"], "top/a.exe");
    EXPECT_EQ(Json::parse(lines[1])["file"], "top/b/found.exe");
    EXPECT_EQ(Json::parse(lines[2])["file"], "top/c\nd\xEF\xBF\xBD.exe");
    EXPECT_EQ(Lines(Scan("-r top").out)[1].find("top/c\\x0ad\\xff.exe: entry 7, "), 0u);
}

// ---- Files that nobody here made -----------------------------------------------------------------------------------

// What ./run installs for building and testing.
constexpr char kPackaged[] = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/share/nsis "
                             "/usr/x86_64-w64-mingw32/lib /usr/lib/gcc/x86_64-w64-mingw32";

TEST_F(ScanCommand, FindsNothingInPackagedPrograms) {
    const Outcome scan = Scan(std::string("-r --json ") + kPackaged);
    EXPECT_EQ(scan.code, 0) << scan.err;
    std::size_t programs = 0;
    for (const std::string &line : Lines(scan.out)) {
        const Json object = Json::parse(line);
        programs += object["status"] == "scanned";
        EXPECT_TRUE(object["findings"].empty()) << line;
    }
    EXPECT_GE(programs, 300u) << "install what ./run test installs";
}

TEST_F(ScanCommand, SurvivesCutAndAlteredPackagedPrograms) {
    std::mt19937 random(1);
    std::size_t made = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator("/usr/lib/x86_64-linux-gnu/wine/x86_64-windows")) {
        if (made == 200)
            break;
        std::string head(0x3000, '\0');
        std::ifstream(entry.path(), std::ios::binary).read(head.data(), static_cast<std::streamsize>(head.size()));
        Write(fmt::format("cut/{}", ++made), std::string_view(head).substr(0, random() % 0x800));
        for (int flips = 0; flips < 8; ++flips)
            head[0x3C + random() % 0x300] ^= static_cast<char>(1u << random() % 7);
        Write(fmt::format("altered/{}", made), head);
    }
    const Outcome scan = Scan("-r --json cut altered");
    EXPECT_TRUE(scan.code == 0 || scan.code == 1) << scan.code << scan.err;
    EXPECT_EQ(Lines(scan.out).size(), 2 * made);
}

TEST_F(ScanCommand, ScansAnInstallerFromItsCompiler) {
    Write("setup.nsi", "Name Setup\nOutFile setup.exe\nSection\nDetailPrint Hello\nSectionEnd\n");
    const Outcome made = Shell("makensis -V1 setup.nsi");
    ASSERT_EQ(made.code, 0) << "install the package nsis; " << made.err;
    const std::string installer = ReadFile("setup.exe");
    const std::size_t header = installer.find("\xEF\xBE\xAD\xDENullsoftInst");
    ASSERT_NE(header, std::string::npos);
    const Outcome scan = Scan("--json setup.exe");
    EXPECT_NE(scan.code, 2) << scan.err;
    const Json object = Json::parse(scan.out);
    EXPECT_EQ(object["status"], "scanned");
    // Whether some entry knows this build depends on the package's version; a finding must be the true header.
    for (const Json &finding : object["findings"])
        EXPECT_EQ(finding["offset"], header) << finding;
    EXPECT_NE(Scan("explain 7 setup.exe").out.find("NumberOfSections"), std::string::npos);
}

} // namespace
} // namespace tavrik::tests
