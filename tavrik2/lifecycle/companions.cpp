#include "tavrik2/lifecycle/companions.h"

#include <cstdint>

#include "tavrik2/lifecycle/platform.h"

namespace tavrik2 {
namespace {

constexpr uint32_t kPathCapacity = 1024;

constexpr char kDecoderFileName[] = "disasm.hbx";
constexpr const char *kDecoderSymbols[] = {
    "GetOffsetsFromBufferEx",     "GetOffsetsFromBufferExUdi",   "GetUdiInstructionsEx",
    "GetMSILDecodedInstructions", "GetPCODEDecodedInstructions",
};
constexpr uint32_t kDecoderSymbolCount = sizeof kDecoderSymbols / sizeof kDecoderSymbols[0];

constexpr char kScanSdkFileName[] = "scansdk.hbx";
constexpr char kScanSdkSymbol[] = "GetIScanFunctionsPtr";

struct Decoder {
    void *module;
    void *addresses[kDecoderSymbolCount];
    uint32_t loaded; // 1 only with the module and all its addresses
};

struct ScanSdk {
    void *module;
    void *address;
};

constinit Decoder g_decoder = {};
constinit ScanSdk g_scan_sdk = {};

void *LoadFromDirectory(const char *directory, const char *file_name) {
    char path[kPathCapacity] = {};
    PlatformCopyString(path, kPathCapacity, directory);
    PlatformAppendPath(path, kPathCapacity, file_name);
    return PlatformLoadModule(path);
}

void ReleaseDecoder() {
    for (void *&address : g_decoder.addresses)
        address = nullptr;
    PlatformFreeModule(g_decoder.module);
    g_decoder.module = nullptr;
}

} // namespace

int LoadDecoder(const char *directory) {
    if (directory == nullptr || g_decoder.loaded == 1)
        return 0;
    g_decoder.module = LoadFromDirectory(directory, kDecoderFileName);
    if (g_decoder.module == nullptr)
        return 0;
    for (uint32_t index = 0; index < kDecoderSymbolCount; ++index) {
        g_decoder.addresses[index] = PlatformGetSymbol(g_decoder.module, kDecoderSymbols[index]);
        if (g_decoder.addresses[index] == nullptr) {
            ReleaseDecoder();
            return 0;
        }
    }
    g_decoder.loaded = 1;
    return 1;
}

void UnloadDecoder() {
    if (g_decoder.loaded == 0)
        return;
    ReleaseDecoder();
    g_decoder.loaded = 0;
}

int LoadScanSdk(const char *own_file_name) {
    if (own_file_name == nullptr)
        return 0;
    char directory[kPathCapacity] = {};
    if (PlatformGetModuleDirectory(own_file_name, directory, kPathCapacity) == 0)
        return 0;
    g_scan_sdk.module = LoadFromDirectory(directory, kScanSdkFileName);
    if (g_scan_sdk.module == nullptr)
        return 0;
    g_scan_sdk.address = PlatformGetSymbol(g_scan_sdk.module, kScanSdkSymbol);
    if (g_scan_sdk.address != nullptr)
        return 1;
    PlatformFreeModule(g_scan_sdk.module);
    g_scan_sdk.module = nullptr;
    return 0;
}

int UnloadScanSdk() {
    g_scan_sdk.address = nullptr;
    PlatformFreeModule(g_scan_sdk.module);
    g_scan_sdk.module = nullptr;
    return 1;
}

} // namespace tavrik2
