// tavrik-scan on PE files that nobody here made.
#include <random>

#include <nlohmann/json.hpp>

#include "samples/samples.h"
#include "tests/support/command.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

class ScanCommand : public testing::Test {
    FreshFolder folder_;
};

// What ./run installs for building and testing.
constexpr char kPackaged[] = "/usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/share/nsis "
                             "/usr/x86_64-w64-mingw32/lib /usr/lib/gcc/x86_64-w64-mingw32";

TEST_F(ScanCommand, FindsNothingInPackagedPrograms) {
    const Outcome scan = Shell(std::string("tavrik-scan -q -r --json ") + kPackaged);
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
    const Outcome scan = Shell("tavrik-scan -q -r --json cut altered");
    EXPECT_TRUE(scan.code == 0 || scan.code == 1) << scan.code << scan.err;
    EXPECT_EQ(Lines(scan.out).size(), 2 * made);
}

TEST_F(ScanCommand, IsConfinedBeforeItReads) {
    const auto state_while_reading = [](const std::string &options) {
        return Shell("mkfifo pipe; tavrik-scan -q " + options +
                     " pipe & for try in $(seq 200); do ls -l /proc/$!/fd 2>&1 | grep -q /pipe && break; sleep 0.01; "
                     "done\n"
                     "grep -E '^(Seccomp|NoNewPrivs):' /proc/$!/status | tr -d '\\n\\t'; : >pipe; wait; rm pipe")
            .out;
    };
    const bool has_filter = Shell("tavrik-scan --version").out.find(", seccomp") != std::string::npos;
    EXPECT_EQ(state_while_reading(""), has_filter ? "NoNewPrivs:1Seccomp:2" : "NoNewPrivs:0Seccomp:0");
    EXPECT_EQ(state_while_reading("--no-sandbox"), "NoNewPrivs:0Seccomp:0");
}

// Where files go whose names come from the command line: everything that is written is written under the sandbox.
TEST_F(ScanCommand, WritesWhereItWasToldAlthoughConfined) {
    Write("x/setup.exe", samples::MakeSample(7).bytes);
    Write("x/old.html", "old");
    fs::create_symlink("x/old.html", "link.html");
    for (const char *command :
         {"tavrik-scan -q --carve a/b/c --report new.html x/setup.exe; [ -s new.html ] && ls a/b/c/*",
          "tavrik-scan -q --report link.html x/setup.exe; [ -L link.html ] && ! grep -qx old x/old.html",
          "cd x && tavrik-scan map setup.exe -o m.svg && [ -s m.svg ] && tavrik-scan map setup.exe -o /dev/null",
          "tar cf x/a.tar x/setup.exe && tavrik-scan unpack x/a.tar -o n/e/w && cmp n/e/w/x/setup.exe x/setup.exe",
          "tavrik-scan -q --report /dev/stdout x/setup.exe | grep -q '<html'"}) {
        const Outcome outcome = Shell(command);
        EXPECT_EQ(outcome.code, 0) << command << '\n' << outcome.err;
    }
}

TEST_F(ScanCommand, ScansAnInstallerFromItsCompiler) {
    Write("setup.nsi", "Name Setup\nOutFile setup.exe\nSection\nDetailPrint Hello\nSectionEnd\n");
    const Outcome made = Shell("makensis -V1 setup.nsi");
    ASSERT_EQ(made.code, 0) << "install the package nsis; " << made.err;
    const std::string installer = ReadFile("setup.exe");
    const std::size_t header = installer.find("\xEF\xBE\xAD\xDENullsoftInst");
    ASSERT_NE(header, std::string::npos);
    const Outcome scan = Shell("tavrik-scan -q --json setup.exe");
    EXPECT_NE(scan.code, 2) << scan.err;
    const Json object = Json::parse(scan.out);
    EXPECT_EQ(object["status"], "scanned");
    // Whether some entry knows this build depends on the package's version; a finding must be the true header.
    for (const Json &finding : object["findings"])
        EXPECT_EQ(finding["offset"], header) << finding;
    EXPECT_NE(Shell("tavrik-scan -q explain 7 setup.exe").out.find("NumberOfSections"), std::string::npos);
}

} // namespace
} // namespace tavrik::tests
