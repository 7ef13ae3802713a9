/* Loading the module, with a reason for every failure. */
#ifndef TAVRIK_ENGINE_MODULE_H
#define TAVRIK_ENGINE_MODULE_H

#include <filesystem>
#include <memory>
#include <string>

#include "scanner/module.h"
#include "tavrik/tavrik.h"

namespace tavrik::engine {

/** A loaded and initialised module, shared by all that was made from it. */
class LoadedModule {
public:
    /** Throws Failure. */
    explicit LoadedModule(const std::filesystem::path &path);
    ~LoadedModule();
    LoadedModule(const LoadedModule &) = delete;
    LoadedModule &operator=(const LoadedModule &) = delete;

    const scanner::Module &module() const { return *module_; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
    std::unique_ptr<scanner::Module> module_;
};

/** Throws the Failure that says why the module at this absolute path cannot be loaded and initialised, as far as that
 * can be seen from outside: the module itself answers 0 and says nothing. */
void RequireUsable(const std::filesystem::path &path);

} // namespace tavrik::engine

struct tavrik_module {
    std::shared_ptr<const tavrik::engine::LoadedModule> loaded;
};

#endif
