// The real platform.hbx: strings within their bounds, the log, and modules with their folders and symbols.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "tavrik2/lifecycle/platform.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

// What a string operation leaves in a buffer whose byte behind the capacity must stay as it is.
template <typename Operation>
std::string Within(uint32_t capacity, const char *before, Operation operation) {
    std::string buffer(64, '#');
    buffer.replace(0, std::strlen(before) + 1, std::string(before) + '\0');
    operation(buffer.data(), capacity);
    EXPECT_EQ(buffer.substr(capacity), std::string(64 - capacity, '#'));
    return capacity == 0 ? "" : std::string(buffer.c_str());
}

TEST(Platform, CopiesWhatFits) {
    const auto copy = [](uint32_t capacity, const char *source) {
        return Within(capacity, "", [=](char *buffer, uint32_t size) { PlatformCopyString(buffer, size, source); });
    };
    EXPECT_EQ(copy(4, "abc"), "abc");
    EXPECT_EQ(copy(3, "abc"), "");
    EXPECT_EQ(copy(1, ""), "");
    EXPECT_EQ(copy(9, nullptr), "");
}

TEST(Platform, AppendsWhatFits) {
    const std::string separator(1, kSeparator);
    const auto append = [](uint32_t capacity, const std::string &directory, const char *file_name) {
        return Within(capacity, directory.c_str(),
                      [=](char *buffer, uint32_t size) { PlatformAppendPath(buffer, size, file_name); });
    };
    EXPECT_EQ(append(9, "abc", "d.hbx"), "");
    EXPECT_EQ(append(10, "abc", "d.hbx"), "abc" + separator + "d.hbx");
    EXPECT_EQ(append(10, "abc" + separator, "d.hbx"), "abc" + separator + "d.hbx");
    EXPECT_EQ(append(10, "", "d.hbx"), "d.hbx");
    EXPECT_EQ(append(10, "abc", nullptr), "");
}

TEST(Platform, HandlesAndBlocks) {
    void *handle = nullptr;
    EXPECT_NE(PlatformCreateHandle(&handle), 0u);
    EXPECT_NE(handle, nullptr);
    PlatformReleaseHandle(handle);
    PlatformReleaseHandle(nullptr);
    EXPECT_EQ(PlatformCreateHandle(nullptr), 0u);
    auto *block = static_cast<char *>(PlatformAlloc(24576, 0, 0));
    ASSERT_NE(block, nullptr);
    std::memset(block, 1, 24576);
    PlatformFree(block);
    PlatformFree(nullptr);
}

TEST(Platform, LogLinesAreAppendedWithTheirTime) {
    const FreshFolder folder;
    PlatformWriteLog("some.log", "one\r\ntwo");
    PlatformWriteLog("some.log", "three");
    PlatformWriteLog(nullptr, "nothing");
    PlatformWriteLog("some.log", nullptr);
    std::string text = ReadFile("some.log");
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }, '9');
    const std::string stamp = "9999-99-99T99:99:99.999Z ";
    EXPECT_EQ(text, stamp + "one  two\n" + stamp + "three\n");
}

TEST(Platform, ModulesAreLoadedFromTheirFolder) {
    const std::string path = ModulePath("disasm.hbx");
    char directory[1024] = "?";
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, sizeof directory), 0u);
    EXPECT_EQ(PlatformLoadModule("disasm.hbx"), nullptr); // a bare name would be searched for
    EXPECT_EQ(PlatformLoadModule((path + "x").c_str()), nullptr);
    void *module = PlatformLoadModule(path.c_str());
    ASSERT_NE(module, nullptr);
    ASSERT_NE(PlatformGetModuleDirectory("disasm.hbx", directory, sizeof directory), 0u);
    EXPECT_TRUE(std::filesystem::equivalent(directory, std::filesystem::path(path).parent_path())) << directory;
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, 3), 0u);
    EXPECT_NE(PlatformGetSymbol(module, "GetUdiInstructionsEx"), nullptr);
    EXPECT_EQ(PlatformGetSymbol(module, "GetIScanFunctionsPtr"), nullptr);
    EXPECT_EQ(PlatformGetSymbol(module, "malloc"), nullptr); // of another module
    PlatformFreeModule(module);
    PlatformFreeModule(nullptr);
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, sizeof directory), 0u);
}

} // namespace
} // namespace tavrik::tests
