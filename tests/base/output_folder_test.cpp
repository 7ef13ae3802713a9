// Files below a folder whose names nobody vouches for, and files without names.
#include <cerrno>
#include <fstream>

#include <gtest/gtest.h>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/output_folder.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

/** Creates a file of one byte; the error number when that fails, otherwise 0. */
int Put(base::OutputFolder &folder, const Names &components) {
    errno = 0;
    std::FILE *const file = folder.Create(components);
    if (file == nullptr)
        return errno;
    std::fputc('x', file);
    std::fclose(file);
    return 0;
}

TEST(OutputFolder, NeverLeavesItselfAndNeverReplaces) {
    const FreshFolder current;
    base::OutputFolder folder("new/deep");
    EXPECT_EQ(Put(folder, {"a", "b", "c.txt"}), 0);
    EXPECT_EQ(ReadFile("new/deep/a/b/c.txt"), "x");
    EXPECT_EQ(folder.PathOf(Names{"a", "c"}), fs::path("new/deep") / "a" / "c");
    EXPECT_EQ(Put(folder, {"a", "b", "c.txt"}), EEXIST);
    EXPECT_EQ(Put(folder, {"a", "b"}), EEXIST) << "a folder has the name";
    EXPECT_NE(Put(folder, {"a", "b", "c.txt", "d"}), 0) << "a file is on the way";
    for (const Names &wrong : {Names{}, Names{""}, Names{".."}, Names{"a", ".."}, Names{"..", "x"}, Names{"."},
                               Names{"a/x"}, Names{"/x"}, Names{"", "x"}, Names{std::string("x\0y", 3)}}) {
        EXPECT_EQ(Put(folder, wrong), EINVAL);
    }
    EXPECT_TRUE(folder.MakeFolder(Names{"a", "e"}));
    EXPECT_TRUE(folder.MakeFolder(Names{"a", "e"}));
    EXPECT_TRUE(fs::is_directory("new/deep/a/e"));
    folder.Remove(Names{"a", "b", "c.txt"});
    EXPECT_FALSE(fs::exists("new/deep/a/b/c.txt"));
    EXPECT_EQ(std::distance(fs::recursive_directory_iterator("."), fs::recursive_directory_iterator()), 5);

    Write("file", "text");
    EXPECT_THROW(base::OutputFolder("file"), base::Error);
    EXPECT_THROW(base::OutputFolder(""), base::Error);
}

#ifndef _WIN32
TEST(OutputFolder, FollowsNoLinkBelowItself) {
    const FreshFolder current;
    fs::create_directory("outside");
    fs::create_directory("real");
    fs::create_directory_symlink("real", "link");
    base::OutputFolder folder("link");
    fs::remove("link");
    fs::create_directory_symlink("outside", "link");
    EXPECT_EQ(Put(folder, {"x"}), 0);
    EXPECT_TRUE(fs::exists("real/x")) << "the folder that the link led to at first";
    fs::create_directory_symlink("../outside", "real/folder");
    fs::create_symlink("../outside/new", "real/dangling");
    EXPECT_NE(Put(folder, {"folder", "x"}), 0);
    EXPECT_EQ(Put(folder, {"dangling"}), EEXIST);
    EXPECT_FALSE(folder.MakeFolder(Names{"folder", "x"}));
    EXPECT_TRUE(fs::is_empty("outside"));
}
#endif

TEST(OutputFolder, KeepsTheTimeThatAFileIsGiven) {
    const FreshFolder current;
    base::OutputFolder folder(".");
    std::FILE *const file = folder.Create(Names{"old"});
    ASSERT_NE(file, nullptr);
    std::fputc('x', file);
    std::fflush(file);
    base::SetFileTime(file, 1'000'000'000);
    std::fclose(file);
    Write("now", "");
    const auto age = fs::last_write_time("now") - fs::last_write_time("old");
    EXPECT_GT(age, std::chrono::hours(24 * 365 * 20)) << "2001 is long ago";
}

TEST(TemporarySource, HoldsWhatWasAppended) {
    base::FileSource source = base::FileSource::Temporary();
    const std::string piece(100'000, 'a');
    for (const char last : {'1', '2'}) {
        source.Append({reinterpret_cast<const uint8_t *>(piece.data()), piece.size()});
        source.Append({reinterpret_cast<const uint8_t *>(&last), 1});
        char byte = 0;
        EXPECT_EQ(source.ReadAt(source.size() - 1, &byte, 1), 1u);
        EXPECT_EQ(byte, last);
    }
    EXPECT_EQ(source.size(), 200'002u);
    base::WindowSource window(source, 99'999, 3);
    char bytes[8] = {};
    EXPECT_EQ(window.size(), 3u);
    EXPECT_EQ(window.ReadAt(0, bytes, 8), 3u);
    EXPECT_STREQ(bytes, "a1a");
    EXPECT_EQ(window.ReadAt(3, bytes, 1), 0u);
    EXPECT_EQ(base::WindowSource(source, 200'000, 9).size(), 2u);
    EXPECT_EQ(base::WindowSource(source, 200'003, 9).size(), 0u);
}

} // namespace
} // namespace tavrik::tests
