#include "engine/module.h"

#include <mutex>

#include <fmt/format.h>

#include "base/error.h"
#include "base/module_path.h"
#include "base/text.h"
#include "engine/failure.h"
#include "engine/gate_text.h"
#include "engine/sized.h"
#include "scanner/locator_info.h"
#include "scanner/scan.h"

namespace tavrik::engine {

namespace fs = std::filesystem;

namespace {

// A module counts its clients without a lock of its own, and several handles can be of one module.
std::mutex &InitialisationLock() {
    static std::mutex lock;
    return lock;
}

} // namespace

LoadedModule::LoadedModule(const fs::path &path) : path_(base::PathText(path)) {
    RequireUsable(path);
    const std::lock_guard lock(InitialisationLock());
    try {
        module_ = std::make_unique<scanner::Module>(path);
    } catch (const base::Error &) {
        throw Failure(TAVRIK_ERROR_MODULE_INIT,
                      fmt::format("{}: does not initialise; install the modules of one version together",
                                  base::PrintablePath(path)));
    }
}

LoadedModule::~LoadedModule() {
    const std::lock_guard lock(InitialisationLock());
    module_.reset();
}

} // namespace tavrik::engine

using namespace tavrik;
using engine::Guard;
using engine::Require;

extern "C" tavrik_status tavrik_module_open(const char *path, tavrik_module **module, tavrik_error *error) {
    return Guard(error, [&] {
        Require(module != nullptr, "module");
        *module = nullptr;
        const std::filesystem::path file =
            path == nullptr ? base::DefaultModulePath() : std::filesystem::absolute(base::PathOf(path));
        *module = new tavrik_module{std::make_shared<const engine::LoadedModule>(file)};
    });
}

extern "C" void tavrik_module_close(tavrik_module *module) {
    delete module;
}

extern "C" const char *tavrik_module_path(const tavrik_module *module) {
    return module == nullptr ? "" : module->loaded->path().c_str();
}

extern "C" size_t tavrik_module_rule_count(const tavrik_module *module) {
    return module == nullptr ? 0 : module->loaded->module().rules().size();
}

extern "C" tavrik_status tavrik_module_rule(const tavrik_module *module, size_t index, tavrik_rule *rule) {
    return Guard(nullptr, [&] {
        Require(module != nullptr, "module");
        const HeuristicRule &record = *engine::At(module->loaded->module().rules(), index);
        engine::Give(rule, {0, record.rule_id, record.detection_name}, "rule");
    });
}

extern "C" size_t tavrik_module_locator_count(const tavrik_module *module) {
    return module == nullptr ? 0 : module->loaded->module().locators().size();
}

extern "C" tavrik_status tavrik_module_locator(const tavrik_module *module, size_t index, tavrik_locator *locator) {
    return Guard(nullptr, [&] {
        Require(module != nullptr, "module");
        const LocatorTableEntry &row = engine::At(module->loaded->module().locators(), index);
        const auto entry = static_cast<uint32_t>(index);
        const engine::LocatorTexts &texts = engine::TextsOf(entry);
        const scanner::LocatorInfo &info = engine::At(scanner::kLocatorInfo, index);
        const uint32_t kind = entry == scanner::kDecliningEntry ? 0 : static_cast<uint32_t>(info.kind);
        engine::Give(locator,
                     {0, entry, kind, row.flags, texts.kind.c_str(), texts.description.c_str(), texts.gate.c_str()},
                     "locator");
    });
}
