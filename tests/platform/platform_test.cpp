// The real platform.hbx: strings within their bounds, the log, and modules with their folders and symbols.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <malloc.h>
#include <sys/stat.h>
#endif

#include <gtest/gtest.h>

#include "tavrik2/lifecycle/platform.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

// What a string operation leaves in a buffer whose byte after the capacity must stay as it is.
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
    char untouched = '#';
    PlatformCopyString(&untouched, 0, "abc");
    EXPECT_EQ(untouched, '#');
    PlatformCopyString(nullptr, 9, "abc");
    char overlapping[] = "abcdef";
    PlatformCopyString(overlapping, sizeof overlapping, overlapping + 1);
    EXPECT_STREQ(overlapping, "bcdef");
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
    EXPECT_EQ(append(9, "abc" + separator, "d.hbx"), "");
    EXPECT_EQ(append(5, "", "d.hbx"), "");
    EXPECT_EQ(append(6, "", "d.hbx"), "d.hbx");
    EXPECT_EQ(append(5, "abc", ""), "abc" + separator);
    EXPECT_EQ(append(4, "abc", ""), "");
    PlatformAppendPath(nullptr, 9, "d.hbx");
    std::string unterminated(8, 'a'); // in a capacity of 4
    PlatformAppendPath(unterminated.data(), 4, "");
    EXPECT_EQ(unterminated, std::string("\0aaaaaaa", 8));
    PlatformAppendPath(unterminated.data() + 1, 0, "");
    EXPECT_EQ(unterminated, std::string("\0aaaaaaa", 8));
}

TEST(Platform, HandlesAndBlocks) {
    void *handle = nullptr;
    EXPECT_NE(PlatformCreateHandle(&handle), 0u);
    EXPECT_NE(handle, nullptr);
    void *other = nullptr;
    EXPECT_NE(PlatformCreateHandle(&other), 0u);
    EXPECT_NE(other, handle);
    PlatformReleaseHandle(other);
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

// "2024-01-31T23:59:59.999" of now, in UTC.
std::string Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&seconds));
    const std::string fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
    return std::string(text, length) + "." + fraction;
}

TEST(Platform, LogLinesTellTheTimeInUtc) {
    const FreshFolder folder;
    for (int line = 0; line < 20; ++line) {
        const std::string before = Now();
        PlatformWriteLog("time.log", "");
        const std::string after = Now();
        const std::string text = ReadFile("time.log");
        ASSERT_GE(text.size(), before.size() + 3);
        const std::string stamp = text.substr(text.size() - before.size() - 3);
        EXPECT_LE(before, stamp.substr(0, before.size()));
        EXPECT_GE(after, stamp.substr(0, before.size()));
        EXPECT_EQ(stamp.substr(before.size()), "Z \n");
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    }
}

TEST(Platform, LogLinesOfThreadsStayWhole) {
    const FreshFolder folder;
    constexpr int kThreads = 4;
    constexpr int kLines = 100; // of each thread
    std::vector<std::thread> writers;
    for (int number = 0; number < kThreads; ++number)
        writers.emplace_back([line = std::string(200, static_cast<char>('a' + number))] {
            for (int written = 0; written < kLines; ++written)
                PlatformWriteLog("shared.log", line.c_str());
        });
    for (std::thread &writer : writers)
        writer.join();
    std::istringstream text(ReadFile("shared.log"));
    std::map<std::string, int> lines; // without their times
    for (std::string line; std::getline(text, line);)
        ++lines[line.substr(line.find(' ') + 1)];
    for (int number = 0; number < kThreads; ++number)
        EXPECT_EQ(lines[std::string(200, static_cast<char>('a' + number))], kLines);
    EXPECT_EQ(lines.size(), std::size_t{kThreads});
}

#ifndef _WIN32
TEST(Platform, LogPathsWithADriveMeanTheCurrentFolder) {
    const FreshFolder folder;
    std::filesystem::create_directory("folder");
    for (const auto &[path, file] : {std::pair("c:\\yndebug.log", "yndebug.log"),
                                     {"Z:\\folder\\deep.log", "deep.log"},
                                     {"a:/folder/slash.log", "slash.log"},
                                     {"d:bare.log", "bare.log"},
                                     {"folder/own.log", "folder/own.log"},
                                     {"[:odd.log", "[:odd.log"},
                                     {"@:odd.log", "@:odd.log"},
                                     {"{:odd.log", "{:odd.log"}}) {
        PlatformWriteLog(path, "line");
        EXPECT_TRUE(ReadFile(file).ends_with("Z line\n")) << path;
    }
    PlatformWriteLog("none/line.log", "line"); // cannot be made
    EXPECT_FALSE(std::filesystem::exists("none"));
}

TEST(Platform, LogFilesAreNeitherLinksNorWaitedFor) {
    const FreshFolder folder;
    std::ofstream("target.log") << "before";
    std::filesystem::create_symlink("target.log", "link.log");
    PlatformWriteLog("link.log", "line");
    EXPECT_EQ(ReadFile("target.log"), "before");
    ASSERT_EQ(mkfifo("pipe.log", 0600), 0);
    PlatformWriteLog("pipe.log", "line"); // nobody reads it
    const mode_t mask = umask(0);
    PlatformWriteLog("new.log", "line");
    umask(mask);
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status("new.log").permissions(),
              perms::owner_read | perms::owner_write | perms::group_read | perms::others_read);
    PlatformWriteLog("target.log", "after");
    EXPECT_TRUE(ReadFile("target.log").starts_with("before2"));
    PlatformWriteLog("/dev/full", "line"); // fails, and is not tried again
    // What a line takes is given back; blocks of this size are mapped each on its own.
    const std::string line(1 << 20, 'x');
    const std::size_t before = mallinfo2().hblkhd;
    PlatformWriteLog("long.log", line.c_str());
    EXPECT_LE(mallinfo2().hblkhd, before);
}
#endif

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
    // A folder that does not fit is none.
    const std::string whole = directory;
    const auto length = static_cast<uint32_t>(whole.size());
    EXPECT_NE(PlatformGetModuleDirectory("disasm.hbx", directory, length + 1), 0u);
    EXPECT_EQ(directory, whole);
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, length), 0u);
    EXPECT_STREQ(directory, "");
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, 0), 0u);
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", nullptr, sizeof directory), 0u);
    std::strcpy(directory, "?");
    EXPECT_EQ(PlatformGetModuleDirectory("disasm", directory, sizeof directory), 0u);
    EXPECT_STREQ(directory, "");
    EXPECT_EQ(PlatformGetModuleDirectory(nullptr, directory, sizeof directory), 0u);
    EXPECT_EQ(PlatformLoadModule(nullptr), nullptr);
    EXPECT_EQ(PlatformGetSymbol(module, nullptr), nullptr);
    EXPECT_EQ(PlatformGetSymbol(nullptr, "GetUdiInstructionsEx"), nullptr);
    EXPECT_NE(PlatformGetSymbol(module, "GetUdiInstructionsEx"), nullptr);
    EXPECT_EQ(PlatformGetSymbol(module, "GetIScanFunctionsPtr"), nullptr);
    EXPECT_EQ(PlatformGetSymbol(module, "malloc"), nullptr); // of another module
    PlatformFreeModule(module);
    PlatformFreeModule(nullptr);
    EXPECT_EQ(PlatformGetModuleDirectory("disasm.hbx", directory, sizeof directory), 0u);
}

TEST(Companions, DecodeNothingAndHaveNoScanFunctions) {
    void *const decoder = PlatformLoadModule(ModulePath("disasm.hbx").c_str());
    for (const char *name : {"GetOffsetsFromBufferEx", "GetOffsetsFromBufferExUdi", "GetUdiInstructionsEx",
                             "GetMSILDecodedInstructions", "GetPCODEDecodedInstructions"}) {
        const auto decode = reinterpret_cast<uint32_t (*)()>(PlatformGetSymbol(decoder, name));
        ASSERT_NE(decode, nullptr) << name;
        EXPECT_EQ(decode(), 0u) << name;
    }
    PlatformFreeModule(decoder);
    void *const sdk = PlatformLoadModule(ModulePath("scansdk.hbx").c_str());
    const auto functions = reinterpret_cast<void *(*)()>(PlatformGetSymbol(sdk, "GetIScanFunctionsPtr"));
    ASSERT_NE(functions, nullptr);
    EXPECT_EQ(functions(), nullptr);
    PlatformFreeModule(sdk);
}

#ifndef _WIN32
// The dynamic linker knows such a module by the path that was given, which means another file in another folder.
TEST(Platform, ModulesLoadedByARelativePathAreFoundWhileThePathLeadsToThem) {
    const FreshFolder folder;
    const std::filesystem::path here = std::filesystem::current_path();
    std::filesystem::copy_file(ModulePath("disasm.hbx"), "relative.hbx");
    std::filesystem::create_directory("other");
    std::filesystem::create_directory("copy");
    std::filesystem::copy_file("relative.hbx", "copy/relative.hbx");
    void *module = PlatformLoadModule("./relative.hbx");
    ASSERT_NE(module, nullptr);
    char directory[1024] = "?";
    EXPECT_NE(PlatformGetModuleDirectory("relative.hbx", directory, sizeof directory), 0u);
    EXPECT_EQ(directory, here.string());
    for (const char *other : {"other", "copy"}) {
        std::filesystem::current_path(here / other);
        EXPECT_EQ(PlatformGetModuleDirectory("relative.hbx", directory, sizeof directory), 0u) << other;
        EXPECT_STREQ(directory, "");
    }
    std::filesystem::current_path(here);
    PlatformFreeModule(module);
}
#endif

} // namespace
} // namespace tavrik::tests
