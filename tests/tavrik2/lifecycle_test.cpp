// Start and stop of the module and of its companions. A test leaves the module as it found it, released, so that the
// tests can share a process; what outlives a complete release (the prepared rules) has its own test.
#include <algorithm>
#include <cstring>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tavrik2/host_config.h"
#include "tavrik2/lifecycle/companions.h"
#include "tavrik2/rules/name_tables.h"
#include "tests/support/platform_double.h"

namespace tavrik::tests {
namespace {

using Events = std::vector<std::string>;

Events operator+(Events left, const Events &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const Events kAttach = {"Attach one engine true four"};
const Events kServices = {"Interface 5 496", "Interface 6 408", "Interface 8 976", "Service114", "CreateLock 2 0"};
const Events kDecoderModule = {"Copy 1024", "Append 1024 disasm.hbx", "Load engine/disasm.hbx"};
const Events kDecoderSymbols = {
    "Symbol GetOffsetsFromBufferEx of engine/disasm.hbx", "Symbol GetOffsetsFromBufferExUdi of engine/disasm.hbx",
    "Symbol GetUdiInstructionsEx of engine/disasm.hbx", "Symbol GetMSILDecodedInstructions of engine/disasm.hbx",
    "Symbol GetPCODEDecodedInstructions of engine/disasm.hbx"};
const Events kDecoder = kDecoderModule + kDecoderSymbols;
const Events kDirectory = {"Directory tavrik2.hbx 1024"};
const Events kScanSdkModule = {"Copy 1024", "Append 1024 scansdk.hbx", "Load home/scansdk.hbx"};
const Events kScanSdk = kDirectory + kScanSdkModule + Events{"Symbol GetIScanFunctionsPtr of home/scansdk.hbx"};
const Events kMakeHandle = {"CreateHandle"};
const Events kFreeScanSdk = {"Free home/scansdk.hbx"};
const Events kFreeDecoder = {"Free engine/disasm.hbx"};
const Events kDestroyLock = {"DestroyLock lock"};
const Events kWholeStart = kAttach + kServices + kDecoder + kScanSdk + kMakeHandle;
const Events kWholeEnd = Events{"ReleaseHandle handle"} + kFreeScanSdk + kFreeDecoder + kDestroyLock;

class Lifecycle : public testing::Test {
protected:
    Lifecycle() { Platform() = {}; }
    ~Lifecycle() override {
        Platform().watch = nullptr; // what it refers to is gone
        for (; references_ != 0; --references_)
            YNLibDeinit();
        EXPECT_EQ(Platform().live_modules, 0);
    }

    uint32_t Init(const HostServices *services = nullptr) {
        // The block lives as long as the call only.
        HostConfig config = MakeHostConfig();
        if (services != nullptr)
            config.services = services;
        block_ = &config;
        const uint32_t count =
            YNLibInit(const_cast<char *>("one"), &config, GetInterfaceDouble, const_cast<char *>("four"));
        references_ += count != 0;
        return count;
    }

    uint32_t Deinit() {
        references_ -= references_ != 0;
        return YNLibDeinit();
    }

    static Events Taken() { return Platform().TakeEvents(); }

    HostConfig *block_ = nullptr; // of the call under way

private:
    uint32_t references_ = 0;
};

TEST_F(Lifecycle, FirstStartAndLastStopDoTheWorkInOrder) {
    EXPECT_EQ(Init(), 1u);
    EXPECT_EQ(Taken(), kWholeStart);
    EXPECT_EQ(Init(), 2u);
    EXPECT_EQ(Taken(), kAttach);
    EXPECT_EQ(Deinit(), 1u);
    EXPECT_EQ(Taken(), Events{});
    EXPECT_EQ(Deinit(), 0u);
    EXPECT_EQ(Taken(), kWholeEnd);
}

TEST_F(Lifecycle, SecondLifeRepeatsTheFirst) {
    for (int life = 0; life < 2; ++life) {
        EXPECT_EQ(Init(), 1u);
        EXPECT_EQ(Taken(), kWholeStart);
        EXPECT_EQ(Deinit(), 0u);
        EXPECT_EQ(Taken(), kWholeEnd);
    }
}

TEST_F(Lifecycle, TheBlockOfTheFirstClientCountsAsItWasWhenTheCallBegan) {
    Platform().watch = [this](const std::string &event) {
        if (event.starts_with("Interface"))
            std::strcpy(block_->decoder_directory, "another");
    };
    EXPECT_EQ(Init(), 1u);
    HostServices others;
    std::memcpy(&others, MakeHostConfig().services, sizeof others);
    others.DestroyLock = [](void *) { Platform().events.emplace_back("DestroyLock of another client"); };
    EXPECT_EQ(Init(&others), 2u);
    EXPECT_EQ(Taken(), kWholeStart + kAttach);
    EXPECT_EQ(Deinit(), 1u);
    EXPECT_EQ(Deinit(), 0u);
    EXPECT_EQ(Taken(), kWholeEnd);
}

// The database is prepared last. It stays prepared, so the first start of a process is the only one that shows it.
TEST_F(Lifecycle, TheDatabaseIsPreparedOnceNothingCanFail) {
    const uint8_t &first = tavrik2::NameTable1[0][0];
    const uint8_t stored = first;
    if (stored == 'A')
        GTEST_SKIP() << "another test of this process has prepared the database";
    Events early;
    Platform().watch = [&](const std::string &event) {
        if (first != stored)
            early.push_back(event);
    };
    EXPECT_EQ(Init(), 1u);
    EXPECT_EQ(early, Events{});
    EXPECT_EQ(first, 'A');
}

TEST_F(Lifecycle, MismatchedStopIsReportedInBothPlacesAndChangesNothing) {
    const std::string report = "\ntavrik2.hbx: Error LibInit LibDeinit mismatched.";
    testing::internal::CaptureStdout();
    long long flushed = 0; // bytes of standard output that have left the process by the time of the log line
    Platform().watch = [&](const std::string &) {
        struct stat status = {};
        EXPECT_EQ(fstat(1, &status), 0);
        flushed = status.st_size;
    };
    EXPECT_EQ(Deinit(), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report);
    EXPECT_GE(flushed, static_cast<long long>(report.size()));
    Platform().watch = nullptr;
    EXPECT_EQ(Taken(), Events{"Log c:\\yndebug.log: tavrik2.hbx: Error LibInit LibDeinit mismatched."});
    EXPECT_EQ(Init(), 1u);
}

// What is missing, and what a start then does; `tries_on` says whether it goes on to succeed.
struct Failure {
    const char *missing;
    bool succeeds;
    Events start;
    Events stop;
};

TEST_F(Lifecycle, MissingModulesAndSymbolsLeaveNothingBehind) {
    const Events with_decoder = kAttach + kServices + kDecoder;
    const Events handle_only = Events{"ReleaseHandle handle"} + kFreeDecoder + kDestroyLock;
    const Failure failures[] = {
        {"engine/disasm.hbx", false, kAttach + kServices + kDecoderModule + kDestroyLock, {}},
        {"GetOffsetsFromBufferEx",
         false,
         kAttach + kServices + kDecoderModule + Events{kDecoderSymbols[0]} + kFreeDecoder + kDestroyLock,
         {}},
        {"GetPCODEDecodedInstructions", false, with_decoder + kFreeDecoder + kDestroyLock, {}},
        {"home/scansdk.hbx", true, with_decoder + kDirectory + kScanSdkModule + kMakeHandle, handle_only},
        {"GetIScanFunctionsPtr", true, with_decoder + kScanSdk + kFreeScanSdk + kMakeHandle, handle_only},
    };
    for (const Failure &failure : failures) {
        SCOPED_TRACE(failure.missing);
        Platform().missing = {failure.missing};
        EXPECT_EQ(Init(), failure.succeeds ? 1u : 0u);
        EXPECT_EQ(Taken(), failure.start);
        if (failure.succeeds) {
            EXPECT_EQ(Deinit(), 0u);
            EXPECT_EQ(Taken(), failure.stop);
        }
        // Once the cause is gone, the next start begins again from the beginning.
        Platform().missing.clear();
        EXPECT_EQ(Init(), 1u);
        EXPECT_EQ(Taken(), kWholeStart);
        EXPECT_EQ(Deinit(), 0u);
        EXPECT_EQ(Taken(), kWholeEnd);
    }
}

// Whatever a start asks for may be missing: the start then fails as a whole or does without, and takes nothing along.
TEST_F(Lifecycle, EveryModuleAndSymbolMayBeMissing) {
    int failed = 0;
    for (const Events &companion : {kDecoder, kScanSdk})
        for (const std::string &event : companion) {
            const std::size_t name = event.find(' ') + 1;
            if (!event.starts_with("Load ") && !event.starts_with("Symbol "))
                continue;
            SCOPED_TRACE(event);
            Platform().missing = {event.substr(name, event.find(' ', name) - name)};
            const bool is_needed = event.find("scansdk") == std::string::npos;
            EXPECT_EQ(Init(), is_needed ? 0u : 1u);
            failed += is_needed;
            EXPECT_EQ(Platform().live_modules, is_needed ? 0 : 1);
            EXPECT_EQ(is_needed ? 0u : Deinit(), 0u);
            EXPECT_EQ(Platform().live_modules, 0);
            Events events = Taken();
            EXPECT_EQ(std::ranges::count(events, kDestroyLock[0]), 1);
            EXPECT_EQ(std::ranges::count(events, kFreeDecoder[0]), event.starts_with("Load engine") ? 0 : 1);
            Platform().missing.clear();
            EXPECT_EQ(Init(), 1u);
            EXPECT_EQ(Taken(), kWholeStart);
            EXPECT_EQ(Deinit(), 0u);
            EXPECT_EQ(Taken(), kWholeEnd);
        }
    EXPECT_EQ(failed, 6);
}

TEST_F(Lifecycle, LockFailureEndsTheStartWithNothingUndone) {
    Platform().lock_fails = true;
    EXPECT_EQ(Init(), 0u);
    EXPECT_EQ(Taken(), kAttach + kServices);
    Platform().lock_fails = false;
    EXPECT_EQ(Init(), 1u);
}

TEST_F(Lifecycle, HandleAndDirectoryFailuresAreNotErrors) {
    Platform().handle_fails = true;
    Platform().own_directory.clear();
    EXPECT_EQ(Init(), 1u);
    EXPECT_EQ(Taken(), kAttach + kServices + kDecoder + kDirectory + kMakeHandle);
    EXPECT_EQ(Deinit(), 0u);
    EXPECT_EQ(Taken(), Events{"ReleaseHandle null"} + kFreeDecoder + kDestroyLock);
}

TEST_F(Lifecycle, DecoderIsLoadedOnceAndReleasedOnce) {
    EXPECT_EQ(tavrik2::LoadDecoder(nullptr), 0);
    tavrik2::UnloadDecoder();
    EXPECT_EQ(Taken(), Events{});
    EXPECT_EQ(tavrik2::LoadDecoder("engine"), 1);
    EXPECT_EQ(Taken(), kDecoder);
    EXPECT_EQ(tavrik2::LoadDecoder("engine"), 0);
    EXPECT_EQ(Taken(), Events{});
    tavrik2::UnloadDecoder();
    tavrik2::UnloadDecoder();
    EXPECT_EQ(Taken(), kFreeDecoder);
}

TEST_F(Lifecycle, ScanSdkNeedsAFileName) {
    EXPECT_EQ(tavrik2::LoadScanSdk(nullptr), 0);
    EXPECT_EQ(Taken(), Events{});
    EXPECT_EQ(tavrik2::LoadScanSdk("tavrik2.hbx"), 1);
    EXPECT_EQ(Taken(), kScanSdk);
    EXPECT_EQ(tavrik2::UnloadScanSdk(), 1);
    EXPECT_EQ(Taken(), kFreeScanSdk);
}

} // namespace
} // namespace tavrik::tests
