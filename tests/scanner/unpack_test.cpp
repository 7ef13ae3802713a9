// Names that containers choose, the bounds of unpacking, and what is left in the folder.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "scanner/member_path.h"
#include "scanner/unpack.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using scanner::payloads::Member;

TEST(SafeComponent, IsANameOnEverySystem) {
    const std::pair<std::string, std::string> rows[] = {
        {"setup.exe", "setup.exe"},
        {"", "_"},
        {".", "_"},
        {"..", "__"},
        {"... ", "____"},
        {"a. ", "a__"},
        {".bashrc", ".bashrc"},
        {"a:b*c?d\"e<f>g|h/i\\j", "a_b_c_d_e_f_g_h_i_j"},
        {"con", "_con"},
        {"Nul.txt.exe", "_Nul.txt.exe"},
        {"COM7 .x", "_COM7 .x"},
        {"lpt\xC2\xB2", "_lpt\xC2\xB2"},
        {"conin$", "_conin$"},
        {"com", "com"},
        {"com10", "com10"},
        {"console", "console"},
        {std::string("a\0\x1B", 3), "a_x00_x1b"},
        {"\xFF\xE2\x80\xAE", "_xff_xe2_x80_xae"}, // no UTF-8; a change of the direction of writing
        {std::string(199, 'x') + "\xC3\xA4", std::string(199, 'x')},
        {"$INSTDIR", "$INSTDIR"}};
    for (const auto &[name, safe] : rows)
        EXPECT_EQ(scanner::SafeComponent(name), safe) << name;
}

TEST(MemberPaths, DifferWhereverASystemTakesThemForTheSame) {
    using Names = std::vector<std::string>;
    scanner::MemberPaths paths;
    EXPECT_EQ(paths.ForFile("/a//b\\.\\c.txt"), (Names{"a", "b", "c.txt"}));
    EXPECT_EQ(paths.ForFile("A/B/C.TXT"), (Names{"a", "b", "C.2.TXT"}));
    EXPECT_EQ(paths.ForFile("a/b/c.txt"), (Names{"a", "b", "c.3.txt"}));
    EXPECT_EQ(paths.ForFile("a"), (Names{"a.2"})) << "there is a folder of that name";
    EXPECT_EQ(paths.ForFile("a/b/c.txt/d"), (Names{"a", "b", "c.4.txt", "d"})) << "there is a file of that name";
    EXPECT_EQ(paths.ForFile("C:\\..\\x"), (Names{"C_", "__", "x"}));
    EXPECT_EQ(paths.ForFile("///"), (Names{"_"}));
    EXPECT_EQ(paths.ForFolder("a/b/"), (Names{"a", "b"}));
    EXPECT_EQ(paths.Another({"a", "b", "c.txt"}).back().substr(0, 2), "c.");
    std::string deep;
    for (int folder = 0; folder < 100; ++folder)
        deep += "d" + std::to_string(folder) + '/';
    EXPECT_EQ(paths.ForFile(deep + "x").size(), scanner::kMostFolders + 1);
    EXPECT_EQ(paths.ForFile(std::string(500, '/') + deep + "x").back(), "x.2");
}

/** A container of members whose content is their number, of which some cannot be read to their ends. */
class FakeContainer final : public scanner::payloads::Container {
public:
    explicit FakeContainer(std::vector<Member> members) : members_(std::move(members)) {}

    std::optional<Member> Next() override {
        left_ = std::to_string(next_);
        member_error_.clear();
        return next_ < members_.size() ? std::optional(members_[next_++]) : std::nullopt;
    }
    std::size_t Read(void *buffer, std::size_t) override {
        if (left_.empty() && members_[next_ - 1].packed_size == 666)
            member_error_ = "damaged";
        return std::exchange(left_, "").copy(static_cast<char *>(buffer), 99);
    }
    const std::string &member_error() const override { return member_error_; }
    const std::string &error() const override { return error_; }

private:
    std::vector<Member> members_;
    std::size_t next_ = 0;
    std::string left_;
    std::string member_error_;
    std::string error_;
};

Member MemberOf(std::string path) {
    Member member;
    member.path = std::move(path);
    return member;
}

TEST(Unpacker, WritesNothingOutsideItsFolderWhateverTheNames) {
    const std::string pieces[] = {"..",
                                  "..",
                                  ".",
                                  "/",
                                  "/",
                                  "\\",
                                  "C:",
                                  "CON",
                                  "nul.txt",
                                  "a",
                                  "A",
                                  "b.exe",
                                  "B.EXE",
                                  " ",
                                  "x:y",
                                  "\x01",
                                  "\xFF",
                                  "\xE2\x80\xAE",
                                  "link",
                                  "link/",
                                  "-rf",
                                  "~",
                                  "$(x)",
                                  "com1",
                                  std::string(1, '\0'),
                                  std::string(300, 'l'),
                                  "taken"};
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const FreshFolder current;
        std::mt19937 random(seed);
        std::vector<Member> members;
        for (int count = 0; count < 400; ++count) {
            std::string path;
            for (std::size_t length = 1 + random() % 6; length > 0; --length)
                path += pieces[random() % std::size(pieces)];
            members.push_back(MemberOf(path));
            members.back().is_folder = random() % 16 == 0;
        }
        fs::create_directories("outside");
        Write("outside/kept", "kept");
        Write("in/taken", "old");
#ifndef _WIN32
        fs::create_directory_symlink("../outside", "in/link");
#endif
        FakeContainer container(members);
        base::OutputFolder folder("in");
        scanner::UnpackBudget budget({}, 1);
        scanner::Unpacker unpacker(folder, budget);
        std::set<fs::path> written;
        std::size_t problems = 0;
        const auto visit = [&](const scanner::Unpacker::Outcome &outcome) {
            if (!outcome.problem.empty()) {
                EXPECT_NE(outcome.problem.find("name an empty folder"), std::string::npos) << outcome.problem;
                ++problems;
            } else {
                EXPECT_TRUE(written.insert(outcome.path).second) << outcome.path;
                for (const fs::path &component : fs::relative(outcome.path, "in"))
                    EXPECT_EQ(scanner::SafeComponent(component.string()).substr(0, 199),
                              component.string().substr(0, 199));
            }
        };
        EXPECT_EQ(unpacker.Unpack(container, visit), "");
        std::size_t there = 0;
        std::size_t unknown = 0; // Windows tells nothing of paths above 260 characters
        for (const fs::directory_entry &entry : fs::recursive_directory_iterator("in")) {
            there += entry.is_regular_file() && !entry.is_symlink() ? 1u : 0u;
            unknown += entry.exists() ? 0u : 1u;
        }
        const auto is_file = [](const Member &member) { return !member.is_folder; };
        EXPECT_EQ(written.size() + problems, static_cast<std::size_t>(std::ranges::count_if(members, is_file)));
        EXPECT_LE(there, written.size() + 1);
        EXPECT_GE(there + unknown, written.size() + 1) << "all survive, and the file that was there";
        EXPECT_EQ(ReadFile("in/taken"), "old");
        EXPECT_EQ(std::distance(fs::directory_iterator("outside"), fs::directory_iterator()), 1);
        EXPECT_EQ(std::distance(fs::directory_iterator("."), fs::directory_iterator()), 2);
    }
}

TEST(Unpacker, LeavesNoPartsAndKeepsToItsBounds) {
    const FreshFolder current;
    std::vector<Member> members = {MemberOf("whole"), MemberOf("damaged"), MemberOf("secret"), MemberOf("next")};
    members[0].time = 1'000'000'000;
    members[1].packed_size = 666;
    members[2].encrypted = true;
    const auto unpack = [&members](const char *into, const scanner::UnpackLimits &limits) {
        FakeContainer container(members);
        base::OutputFolder folder(into);
        scanner::UnpackBudget budget(limits, 1);
        scanner::Unpacker unpacker(folder, budget);
        std::string problems;
        const std::string error = unpacker.Unpack(container, [&](const scanner::Unpacker::Outcome &outcome) {
            problems += outcome.problem.substr(0, outcome.problem.find(';')) + '|';
        });
        return problems + error + '|' + std::to_string(unpacker.files());
    };
    EXPECT_EQ(unpack("all", {}), "|damaged|is encrypted|||2");
    EXPECT_EQ(ReadFile("all/whole") + ReadFile("all/next"), "03");
    EXPECT_FALSE(fs::exists("all/damaged"));
    EXPECT_LT(fs::last_write_time("all/whole"), fs::last_write_time("all/next") - std::chrono::hours(24 * 365));
    EXPECT_EQ(unpack("files", {.files = 3}), "|damaged|is encrypted|more than 3 files inside|1");
    EXPECT_EQ(unpack("bytes", {.bytes = 1}), "|more than 1 bytes inside|more than 1 bytes inside|1");
    scanner::UnpackBudget budget({.ratio = 10}, 100);
    EXPECT_TRUE(budget.TakeBytes(scanner::kRatioCountsFrom)) << "whatever the ratio";
    EXPECT_FALSE(budget.TakeBytes(1));
    EXPECT_EQ(budget.exceeded(), "more than 10 bytes inside for each of the file's own");
    EXPECT_FALSE(budget.TakeFile());
    EXPECT_FALSE(scanner::UnpackBudget({}, 1).TakeBytes(UINT64_MAX));
}

} // namespace
} // namespace tavrik::tests
