#include "scanner/module.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "base/error.h"
#include "base/module_path.h"
#include "scanner/module_check.h"
#include "scanner/unused.h"

namespace tavrik::scanner {

namespace fs = std::filesystem;

namespace {

// ---- What the host supplies ----------------------------------------------------------------------------------------

uint32_t CreateLock(void **slot, uint8_t, uint32_t) {
    *slot = new (std::nothrow) std::mutex;
    return *slot != nullptr ? 1 : 0;
}

void DestroyLock(void *lock) {
    delete static_cast<std::mutex *>(lock);
}

constexpr std::size_t kFirstUnused = sizeof HostServices::unused_0 / sizeof(UnusedService);
constexpr std::size_t kSecondStart = kFirstUnused + 1; // after the service at position 114
constexpr std::size_t kSecondUnused = sizeof HostServices::unused_115 / sizeof(UnusedService);

template <std::size_t Start, std::size_t... Index>
constexpr void FillUnused(UnusedService *slots, std::index_sequence<Index...>) {
    ((slots[Index] = UnusedSlot<SlotOf::HostServices, Start + Index>), ...);
}

HostServices MakeServices() {
    HostServices services;
    FillUnused<0>(services.unused_0, std::make_index_sequence<kFirstUnused>());
    FillUnused<kSecondStart>(services.unused_115, std::make_index_sequence<kSecondUnused>());
    services.Service114 = [] { return uint32_t{0}; };
    services.CreateLock = CreateLock;
    services.DestroyLock = DestroyLock;
    return services;
}

// The module stores this function's pointer and never calls it.
void *GetNoInterface(uint32_t, uint32_t) {
    return nullptr;
}

// ---- Loading -------------------------------------------------------------------------------------------------------

// A module counts its clients without a lock of its own.
std::mutex &InitialisationLock() {
    static std::mutex lock;
    return lock;
}

fs::path AbsoluteModule(const fs::path &path) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    return error ? path : absolute;
}

// All exports are there, since the module is usable.
template <typename Function>
Function Export(const base::DynamicLibrary &library, const char *name) {
    return std::bit_cast<Function>(library.Symbol(name));
}

base::Error NotUsable(const fs::path &path, const char *reason, base::ErrorCode code) {
    return {path, fmt::format("{}; install the modules of one version together", reason), code};
}

} // namespace

fs::path Module::DefaultPath() {
    return base::DefaultModulePath();
}

Module::Module(const fs::path &path)
    : path_(AbsoluteModule(path)), library_(LoadUsable(path_)),
      deinit_(Export<decltype(&YNLibDeinit)>(library_, "YNLibDeinit")),
      clean_(Export<decltype(&HeurClean)>(library_, "HeurClean")) {
    const auto init = Export<decltype(&YNLibInit)>(library_, "YNLibInit");
    const auto get_rules = Export<decltype(&HeurGetDetectionInfo)>(library_, "HeurGetDetectionInfo");
    const auto get_locators = Export<decltype(&HeurGetLocatorTable)>(library_, "HeurGetLocatorTable");

    HeuristicRule *const *rules = nullptr;
    const LocatorTableEntry *locators = nullptr;
    uint32_t rule_count = 0;
    uint32_t locator_count = 0;
    if (get_rules(&rules, &rule_count) == 0 || get_locators(&locators, &locator_count) == 0)
        throw NotUsable(path_, "hands out no rules or no locators", base::ErrorCode::ModuleForeign);
    rules_ = {rules, rule_count};
    locators_ = {locators, locator_count};

    // The services outlive every module.
    static const HostServices services = MakeServices();
    HostConfig config = {};
    config.services = &services;
    const std::string directory = base::SystemPath(path_.parent_path()); // which fits, since the module is usable
    directory.copy(config.decoder_directory, std::min(directory.size(), sizeof config.decoder_directory - 1));
    const std::lock_guard lock(InitialisationLock());
    if (init(nullptr, &config, GetNoInterface, nullptr) == 0)
        throw NotUsable(path_, "does not initialise", base::ErrorCode::ModuleInit);
}

Module::~Module() {
    const std::lock_guard lock(InitialisationLock());
    deinit_();
}

CleanDecision Module::AskCleanAction(const fs::path &file, uint32_t code, uint32_t rule_id) const {
    ModuleStream stream(ModuleStream::OpenAs::TheModuleAsks);
    return Ask(file, code, rule_id, stream);
}

CleanDecision Module::PreviewCleanAction(const fs::path &file, uint32_t code, uint32_t rule_id) const {
    ModuleStream stream(ModuleStream::OpenAs::ReadOnly);
    return Ask(file, code, rule_id, stream);
}

CleanDecision Module::PreviewCleanAction(uint32_t code, uint32_t rule_id) const {
    ModuleStream stream(ModuleStream::OpenAs::Nothing);
    return Ask({}, code, rule_id, stream);
}

CleanDecision Module::Ask(const fs::path &file, uint32_t code, uint32_t rule_id, ModuleStream &stream) const {
    CleanContext context = {};
    context.stream = stream.stream();
    uint32_t action = CLEAN_ACTION_NONE;
    const uint32_t applies = clean_(&file, &context, nullptr, nullptr, code, 0, rule_id, &action, nullptr);
    return {applies != 0, action};
}

} // namespace tavrik::scanner
