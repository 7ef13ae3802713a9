#include <cstdio>
#include <cstring>

#include "tavrik2/host_config.h"
#include "tavrik2/lifecycle/companions.h"
#include "tavrik2/lifecycle/platform.h"
#include "tavrik2/rules/preparation.h"

namespace tavrik2 {
namespace {

constexpr char kModuleFileName[] = "tavrik2.hbx";
constexpr char kMismatchText[] = "%s: Error LibInit LibDeinit mismatched.";
constexpr char kLogPath[] = "c:\\yndebug.log";

constexpr uint8_t kLockKind = 2;

// The interfaces that the host is asked for, with the number that goes with each.
struct InterfaceRequest {
    uint32_t interface_number;
    uint32_t companion_number;
};
constexpr InterfaceRequest kInterfaceRequests[] = {{5, 496}, {6, 408}, {8, 976}};
constexpr uint32_t kInterfaceCount = sizeof kInterfaceRequests / sizeof kInterfaceRequests[0];

// The host calls YNLibInit and YNLibDeinit from one thread at a time, so the count is a plain one.
struct ModuleState {
    uint32_t reference_count;
    HostConfig config; // the host's block as of the first initialisation
    void *retained_value;
    const HostServices *services;
    void *interfaces[kInterfaceCount]; // requested from the host and kept, never used
    void *lock;                        // created and destroyed, never acquired
    void *platform_handle;
    uint32_t scan_sdk_loaded;
};

constinit ModuleState g_state = {};

// Returns 0 on failure, with nothing undone but the lock; the next first initialisation starts over.
uint32_t InitialiseFirst(const HostConfig *config, GetInterface get_interface) {
    std::memcpy(&g_state.config, config, sizeof g_state.config);
    g_state.retained_value = g_state.config.retained_value;
    g_state.services = g_state.config.services;
    for (uint32_t index = 0; index < kInterfaceCount; ++index) {
        const InterfaceRequest &request = kInterfaceRequests[index];
        g_state.interfaces[index] = get_interface(request.interface_number, request.companion_number);
    }
    g_state.services->Service114();
    if (g_state.services->CreateLock(&g_state.lock, kLockKind, 0) == 0)
        return 0;
    if (LoadDecoder(g_state.config.decoder_directory) == 0) {
        g_state.services->DestroyLock(g_state.lock);
        return 0;
    }
    g_state.scan_sdk_loaded = LoadScanSdk(kModuleFileName) == 1 ? 1 : 0;
    if (PlatformCreateHandle(&g_state.platform_handle) == 0)
        g_state.platform_handle = nullptr;
    PrepareDatabase();
    g_state.reference_count = 1;
    return g_state.reference_count;
}

void ReleaseLast() {
    PlatformReleaseHandle(g_state.platform_handle);
    g_state.platform_handle = nullptr;
    if (g_state.scan_sdk_loaded == 1)
        UnloadScanSdk();
    g_state.scan_sdk_loaded = 0;
    UnloadDecoder();
    g_state.services->DestroyLock(g_state.lock);
    g_state.retained_value = nullptr;
    g_state.services = nullptr;
    for (void *&interface : g_state.interfaces)
        interface = nullptr;
}

void ReportMismatch() {
    char line[sizeof kMismatchText + sizeof kModuleFileName];
    std::snprintf(line, sizeof line, kMismatchText, kModuleFileName);
    std::printf("\n%s", line);
    std::fflush(stdout); // the host may be about to end
    PlatformWriteLog(kLogPath, line);
}

} // namespace
} // namespace tavrik2

extern "C" uint32_t YNLibInit(void *first, const HostConfig *config, GetInterface get_interface, void *fourth) {
    using tavrik2::g_state;
    PlatformAttach(first, config, get_interface, fourth);
    if (g_state.reference_count != 0)
        return ++g_state.reference_count;
    return tavrik2::InitialiseFirst(config, get_interface);
}

extern "C" uint32_t YNLibDeinit(void) {
    using tavrik2::g_state;
    if (g_state.reference_count == 0) {
        tavrik2::ReportMismatch();
        return 0;
    }
    if (--g_state.reference_count == 0)
        tavrik2::ReleaseLast();
    return g_state.reference_count;
}
