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
#include "base/text.h"
#include "scanner/unused.h"

namespace tavrik::scanner {

namespace fs = std::filesystem;

namespace {

constexpr char kModuleFileName[] = "tavrik2.hbx";

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

constexpr char kRemedy[] = "build it with `./run build` or name it with --module";

fs::path Absolute(const fs::path &path) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    return error ? path : absolute;
}

base::DynamicLibrary Load(const fs::path &path) {
    // The loader's text for a missing file is less clear.
    std::error_code error;
    if (!fs::exists(path, error))
        throw base::Error(fmt::format("cannot load {}: {}; {}", base::PrintablePath(path),
                                      error ? error.message() : "no such file", kRemedy));
    try {
        return base::DynamicLibrary(path);
    } catch (const base::Error &reason) {
        throw base::Error(
            fmt::format("cannot load {}: {}; {}", base::PrintablePath(path), base::Printable(reason.what()), kRemedy));
    }
}

} // namespace

fs::path Module::DefaultPath() {
    return base::DefaultModulePath();
}

template <typename Function>
Function Module::Export(const char *name) const {
    void *address = library_.Symbol(name);
    if (address == nullptr)
        throw base::Error(fmt::format("cannot use {}: it does not export {}; name a {} with --module",
                                      base::PrintablePath(path_), name, kModuleFileName));
    return std::bit_cast<Function>(address);
}

Module::Module(const fs::path &path)
    : path_(Absolute(path)), library_(Load(path_)), deinit_(Export<decltype(&YNLibDeinit)>("YNLibDeinit")),
      clean_(Export<decltype(&HeurClean)>("HeurClean")) {
    const auto init = Export<decltype(&YNLibInit)>("YNLibInit");
    const auto get_rules = Export<decltype(&HeurGetDetectionInfo)>("HeurGetDetectionInfo");
    const auto get_locators = Export<decltype(&HeurGetLocatorTable)>("HeurGetLocatorTable");

    HeuristicRule *const *rules = nullptr;
    const LocatorTableEntry *locators = nullptr;
    uint32_t rule_count = 0;
    uint32_t locator_count = 0;
    if (get_rules(&rules, &rule_count) == 0 || get_locators(&locators, &locator_count) == 0)
        throw base::Error(
            fmt::format("cannot use {}: it hands out no rules or no locators", base::PrintablePath(path_)));
    rules_ = {rules, rule_count};
    locators_ = {locators, locator_count};

    // The services outlive every module.
    static const HostServices services = MakeServices();
    HostConfig config = {};
    config.services = &services;
    const fs::path folder = path_.parent_path();
    const std::string directory = base::SystemPath(folder);
    if (directory.empty() || directory.size() >= sizeof config.decoder_directory)
        throw base::Error(fmt::format("cannot use {}: the name of its folder is too long or has characters that the "
                                      "module cannot take; move the modules to another folder",
                                      base::PrintablePath(path_)));
    directory.copy(config.decoder_directory, directory.size());
    if (init(nullptr, &config, GetNoInterface, nullptr) == 0)
        throw base::Error(fmt::format("cannot start {}: it needs disasm.hbx in its folder, {}",
                                      base::PrintablePath(path_), base::PrintablePath(folder)));
}

Module::~Module() {
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
