// The real tavrik2.hbx with the real modules around it. Every test loads the module anew and so begins with fresh
// globals, in whatever order and process the tests run.
#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

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

// The rule table as bytes: every record, and every feature string.
struct Database {
    std::vector<std::string> records;
    std::vector<std::string> strings;

    explicit Database(std::span<HeuristicRule *const> table) {
        for (const HeuristicRule *rule : table) {
            records.emplace_back(reinterpret_cast<const char *>(rule), sizeof *rule);
            for (uint32_t index = 0; index < rule->strings.count; ++index) {
                const StringFeature &string = rule->strings.elements[index];
                strings.emplace_back(reinterpret_cast<const char *>(string.bytes), string.length);
            }
        }
    }

    bool operator==(const Database &) const = default;
};

TEST_F(Module, TheDatabaseIsPreparedOnceAndOtherwiseLeftAlone) {
    const auto rules = Symbol<decltype(&HeurGetDetectionInfo)>("HeurGetDetectionInfo");
    HeuristicRule *const *address = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(rules(&address, &count), 1u);
    ASSERT_EQ(count, 6528u);
    const std::span table(address, count);
    const Database stored(table);

    // A start that fails before the preparation leaves the stored form.
    const FreshFolder folder;
    ASSERT_EQ(Init(std::filesystem::current_path().string()), 0u);
    EXPECT_EQ(Database(table), stored);

    ASSERT_EQ(Init(ModuleFolder()), 1u);
    const Database working(table);
    constexpr size_t kFlagsByte = offsetof(HeuristicRule, feature_flags);
    size_t changed_flags = 0;
    for (size_t rule = 0; rule < count; ++rule) {
        std::string expected = stored.records[rule];
        changed_flags += expected[kFlagsByte] != working.records[rule][kFlagsByte] ? 1u : 0u;
        expected[kFlagsByte] = working.records[rule][kFlagsByte];
        ASSERT_EQ(working.records[rule], expected) << "rule at place " << rule;
    }
    EXPECT_EQ(changed_flags, 1924u);
    ASSERT_EQ(working.strings.size(), stored.strings.size());
    for (size_t string = 0; string < stored.strings.size(); ++string) {
        std::string expected = stored.strings[string];
        for (char &byte : expected)
            byte = static_cast<char>(byte - 3);
        ASSERT_EQ(working.strings[string], expected) << "string " << string;
    }
    EXPECT_EQ(Deinit(), 0u);

    // A second life finds the working form.
    ASSERT_EQ(Init(ModuleFolder()), 1u);
    EXPECT_EQ(Database(table), working);
    EXPECT_EQ(Deinit(), 0u);
}

} // namespace
} // namespace tavrik::tests
