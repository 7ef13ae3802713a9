// Files that are written as a whole.
#include <gtest/gtest.h>

#include "base/atomic_file.h"
#include "base/error.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;

class WholeFile : public testing::Test {
protected:
    static std::size_t CountFiles() {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator("."), fs::directory_iterator()));
    }

private:
    FreshFolder folder_;
};

TEST_F(WholeFile, IsReplacedAndLeavesNothingElse) {
    base::WriteWholeFile("new", "one\r\n\n");
    EXPECT_EQ(ReadFile("new"), "one\r\n\n");
    const uint8_t bytes[] = {0, 0x0D, 0xFF};
    base::WriteWholeFile("new", bytes);
    EXPECT_EQ(ReadFile("new"), std::string("\0\r\xFF", 3));
    Write("new.new", "mine"); // names that a temporary file might have
    Write("new.tmp", "mine");
    Write("new.part", "mine");
    base::WriteWholeFile("new", "");
    EXPECT_EQ(ReadFile("new"), "");
    EXPECT_EQ(ReadFile("new.new") + ReadFile("new.tmp") + ReadFile("new.part"), "mineminemine");
    EXPECT_EQ(CountFiles(), 4u);

    const std::string longest(255, 'n');
    EXPECT_NO_THROW(base::WriteWholeFile(longest, "x"));
    EXPECT_EQ(ReadFile(longest), "x");
}

TEST_F(WholeFile, IsWrittenOnlyWhenItChanges) {
    EXPECT_TRUE(base::WriteWholeFileIfChanged("file", ""));
    EXPECT_FALSE(base::WriteWholeFileIfChanged("file", ""));
    EXPECT_TRUE(base::WriteWholeFileIfChanged("file", "a"));
    EXPECT_TRUE(base::WriteWholeFileIfChanged("file", "ab"));
    EXPECT_FALSE(base::WriteWholeFileIfChanged("file", "ab"));
    EXPECT_TRUE(base::WriteWholeFileIfChanged("file", "a"));
    EXPECT_EQ(ReadFile("file"), "a");
}

TEST_F(WholeFile, IsAsItWasAfterAFailure) {
    fs::create_directory("folder");
    Write("folder/kept", "kept");
    EXPECT_THROW(base::WriteWholeFile("folder", "x"), base::Error);
    EXPECT_THROW(base::WriteWholeFile("missing/file", "x"), base::Error);
    EXPECT_THROW(base::WriteWholeFile("folder/kept/file", "x"), base::Error);
    EXPECT_EQ(ReadFile("folder/kept"), "kept");
    EXPECT_EQ(CountFiles(), 1u);
    try {
        base::WriteWholeFile("missing/file", "x");
        FAIL();
    } catch (const base::Error &error) {
        EXPECT_EQ(std::string(error.what()).find("missing"), 0u) << error.what();
        EXPECT_NE(std::string(error.what()).find("cannot be written"), std::string::npos) << error.what();
    }
    EXPECT_THROW(base::MakeFolders("folder/kept/deeper"), base::Error);
    EXPECT_NO_THROW(base::MakeFolders("folder/a/b"));
    EXPECT_NO_THROW(base::MakeFolders("folder/a/b"));
    EXPECT_TRUE(fs::is_directory("folder/a/b"));
}

#ifndef _WIN32
TEST_F(WholeFile, KeepsItsPermissions) {
    using fs::perms;
    for (const perms mode : {perms::owner_read | perms::owner_write, perms::all, perms::owner_read}) {
        Write("file", "old");
        fs::permissions("file", mode);
        base::WriteWholeFile("file", "new");
        EXPECT_EQ(ReadFile("file"), "new");
        EXPECT_EQ(fs::status("file").permissions(), mode);
        fs::remove("file");
    }
    Write("by_mask", "");
    base::WriteWholeFile("new", "new");
    EXPECT_EQ(fs::status("new").permissions(), fs::status("by_mask").permissions());
}

TEST_F(WholeFile, IsReachedThroughLinks) {
    fs::create_directory("folder");
    Write("folder/target", "old");
    fs::create_symlink("target", "folder/inner");
    fs::create_symlink("folder/inner", "outer");
    fs::create_symlink(fs::absolute("folder/dangling"), "new");
    base::WriteWholeFile("outer", "written");
    base::WriteWholeFile("new", "made");
    EXPECT_EQ(fs::read_symlink("outer"), "folder/inner");
    EXPECT_EQ(fs::read_symlink("folder/inner"), "target");
    EXPECT_FALSE(fs::is_symlink("folder/target"));
    EXPECT_EQ(ReadFile("folder/target"), "written");
    EXPECT_TRUE(fs::is_symlink("new"));
    EXPECT_EQ(ReadFile("folder/dangling"), "made");

    fs::create_symlink("loop", "loop");
    EXPECT_THROW(base::WriteWholeFile("loop", "x"), base::Error);
    base::WriteWholeFile("/dev/null", "x");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    if (fs::exists("/dev/full")) {
        EXPECT_THROW(base::WriteWholeFile("/dev/full", "x"), base::Error);
    }
}
#endif

} // namespace
} // namespace tavrik::tests
