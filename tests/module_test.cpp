// The real tavrik2.hbx with the real modules around it. Every test loads the module anew and so begins with fresh
// globals, in whatever order and process the tests run.
#include <algorithm>

#include <gtest/gtest.h>

#include "tavrik2/tavrik2.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

int g_locks = 0;

class Module : public testing::Test {
protected:
    void SetUp() override {
        module_ = PlatformLoadModule(ModulePath("tavrik2.hbx").c_str());
        ASSERT_NE(module_, nullptr);
        init_ = Symbol<decltype(&YNLibInit)>("YNLibInit");
        deinit_ = Symbol<decltype(&YNLibDeinit)>("YNLibDeinit");
        ASSERT_TRUE(init_ != nullptr && deinit_ != nullptr);
        g_locks = 0;
    }

    void TearDown() override {
        PlatformFreeModule(module_);
        EXPECT_EQ(g_locks, 0);
        EXPECT_FALSE(IsLoaded("tavrik2.hbx"));
    }

    template <typename Function>
    Function Symbol(const char *name) {
        return reinterpret_cast<Function>(PlatformGetSymbol(module_, name));
    }

    uint32_t Init(const std::string &decoder_directory) {
        static HostServices services = {};
        services.Service114 = [] { return uint32_t{0}; };
        services.CreateLock = [](void **slot, uint8_t, uint32_t) {
            *slot = &g_locks;
            ++g_locks;
            return uint32_t{1};
        };
        services.DestroyLock = [](void *lock) { g_locks -= lock == &g_locks; };
        HostConfig config = {};
        decoder_directory.copy(config.decoder_directory, sizeof config.decoder_directory - 1);
        config.services = &services;
        return init_(
            nullptr, &config, [](uint32_t, uint32_t) -> void * { return nullptr; }, nullptr);
    }

    uint32_t Deinit() { return deinit_(); }

    static bool IsLoaded(const char *file_name) {
        char directory[1024];
        return PlatformGetModuleDirectory(file_name, directory, sizeof directory) != 0;
    }

    static int LoadedCompanions() { return IsLoaded("disasm.hbx") + IsLoaded("scansdk.hbx"); }

private:
    void *module_ = nullptr;
    decltype(&YNLibInit) init_ = nullptr;
    decltype(&YNLibDeinit) deinit_ = nullptr;
};

TEST_F(Module, ExportsItsFiveFunctionsAndNothingElse) {
    for (const char *name : {"YNLibInit", "YNLibDeinit", "HeurGetDetectionInfo", "HeurGetLocatorTable", "HeurClean"})
        EXPECT_NE(Symbol<void *>(name), nullptr) << name;
    for (const char *name : {"RuleTable", "RuleTableCount", "LocatorTable", "PlatformAlloc"})
        EXPECT_EQ(Symbol<void *>(name), nullptr) << name;
}

TEST_F(Module, TwoLivesLoadAndReleaseTheCompanions) {
    for (int life = 0; life < 2; ++life) {
        EXPECT_EQ(LoadedCompanions(), 0);
        EXPECT_EQ(Init(ModuleFolder()), 1u);
        EXPECT_EQ(Init(ModuleFolder()), 2u);
        EXPECT_EQ(LoadedCompanions(), 2);
        EXPECT_EQ(g_locks, 1);
        EXPECT_EQ(Deinit(), 1u);
        EXPECT_EQ(LoadedCompanions(), 2);
        EXPECT_EQ(Deinit(), 0u);
    }
    EXPECT_EQ(LoadedCompanions(), 0);
}

TEST_F(Module, WithoutItsDecoderTheStartFailsAndMayBeRepeated) {
    const FreshFolder folder;
    EXPECT_EQ(Init(std::filesystem::current_path().string()), 0u);
    EXPECT_EQ(LoadedCompanions(), 0);
    EXPECT_EQ(g_locks, 0);
    EXPECT_EQ(Init(ModuleFolder()), 1u);
    EXPECT_EQ(Deinit(), 0u);
}

TEST_F(Module, MismatchedStopIsReportedInBothPlaces) {
    const FreshFolder folder;
#ifdef _WIN32
    const char *log = "c:\\yndebug.log";
#else
    const char *log = "yndebug.log"; // a drive's file is the current folder's
#endif
    const size_t before = ReadFile(log).size();
    testing::internal::CaptureStdout();
    EXPECT_EQ(Deinit(), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\ntavrik2.hbx: Error LibInit LibDeinit mismatched.");
    const std::string line = ReadFile(log).substr(before);
    const std::string message = "tavrik2.hbx: Error LibInit LibDeinit mismatched.\n";
    ASSERT_GT(line.size(), message.size());
    EXPECT_EQ(line.substr(line.size() - message.size()), message);
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_EQ(Init(ModuleFolder()), 1u);
    EXPECT_EQ(Deinit(), 0u);
}

TEST_F(Module, RulesArePreparedByTheFirstLifeOnly) {
    const auto rules = Symbol<decltype(&HeurGetDetectionInfo)>("HeurGetDetectionInfo");
    const auto locators = Symbol<decltype(&HeurGetLocatorTable)>("HeurGetLocatorTable");
    HeuristicRule *const *table = nullptr;
    const LocatorTableEntry *entries = nullptr;
    uint32_t rule_count = 0, entry_count = 0;
    ASSERT_EQ(rules(&table, &rule_count), 1u);
    ASSERT_EQ(locators(&entries, &entry_count), 1u);
    EXPECT_EQ(entry_count, 50u);
    EXPECT_GE(rule_count, 3u);

    // A rule of the test's own in place of the first one shows what becomes of strings: they are brought into working
    // form by the first life, and left alone by the second.
    uint8_t bytes[] = {'d', 0x02};
    StringFeature feature = {};
    feature.bytes = bytes;
    feature.length = sizeof bytes;
    table[0]->strings = {&feature, 1};
    table[0]->feature_flags = 0;
    for (int life = 0; life < 2; ++life) {
        EXPECT_EQ(Init(ModuleFolder()), 1u);
        EXPECT_EQ(bytes[0], 'a');
        EXPECT_EQ(bytes[1], 0xFF);
        EXPECT_TRUE(table[0]->feature_flags & FEATURE_CONTENT);
        EXPECT_EQ(Deinit(), 0u);
    }
}

} // namespace
} // namespace tavrik::tests
