#include "engine/module.h"

#include "base/text.h"
#include "engine/failure.h"
#include "engine/gate_text.h"
#include "engine/sized.h"
#include "scanner/locator_info.h"

using namespace tavrik;
using engine::Guard;
using engine::Require;

extern "C" tavrik_status tavrik_module_open(const char *path, tavrik_module **module, tavrik_error *error) {
    return Guard(error, [&] {
        Require(module != nullptr, "module");
        *module = nullptr;
        auto made = std::make_unique<tavrik_module>();
        made->loaded = std::make_shared<const scanner::Module>(path == nullptr ? scanner::Module::DefaultPath()
                                                                               : base::PathOf(path));
        made->path = base::PathText(made->loaded->path());
        *module = made.release();
    });
}

extern "C" void tavrik_module_close(tavrik_module *module) {
    delete module;
}

extern "C" const char *tavrik_module_path(const tavrik_module *module) {
    return module == nullptr ? "" : module->path.c_str();
}

extern "C" size_t tavrik_module_rule_count(const tavrik_module *module) {
    return module == nullptr ? 0 : module->loaded->rules().size();
}

extern "C" tavrik_status tavrik_module_rule(const tavrik_module *module, size_t index, tavrik_rule *rule) {
    return Guard(nullptr, [&] {
        Require(module != nullptr, "module");
        const HeuristicRule &record = *engine::At(module->loaded->rules(), index);
        engine::Give(rule, {0, record.rule_id, record.detection_name, ""}, "rule");
    });
}

extern "C" size_t tavrik_module_locator_count(const tavrik_module *module) {
    return module == nullptr ? 0 : module->loaded->locators().size();
}

extern "C" tavrik_status tavrik_module_locator(const tavrik_module *module, size_t index, tavrik_locator *locator) {
    return Guard(nullptr, [&] {
        Require(module != nullptr, "module");
        const LocatorTableEntry &row = engine::At(module->loaded->locators(), index);
        const auto entry = static_cast<uint32_t>(index);
        const engine::LocatorTexts &texts = engine::TextsOf(entry);
        const scanner::LocatorInfo &info = engine::At(scanner::kLocatorInfo, index);
        const uint32_t kind = entry == scanner::kDecliningEntry ? 0 : static_cast<uint32_t>(info.kind);
        engine::Give(locator,
                     {0, entry, kind, row.flags, texts.kind.c_str(), texts.description.c_str(), texts.gate.c_str()},
                     "locator");
    });
}
