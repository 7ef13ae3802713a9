/* Why a module cannot be used, as far as that can be seen from outside: itself it answers 0 and says nothing. */
#ifndef TAVRIK_SCANNER_MODULE_CHECK_H
#define TAVRIK_SCANNER_MODULE_CHECK_H

#include <filesystem>
#include <span>

#include "base/error.h"
#include "base/system.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::scanner {

/** Loads the module at this absolute path. Throws the base::Error that says why it cannot be loaded and initialised:
 * its code, the file and, after a semicolon, the remedy. */
base::DynamicLibrary LoadUsable(const std::filesystem::path &module);

/** A module whose rules are read as they are stored: it is loaded and not initialised. */
class StoredModule {
public:
    /** Throws as LoadUsable; what is needed only to initialise it may be missing. */
    explicit StoredModule(const std::filesystem::path &module);

    /** The module's file, absolute. */
    const std::filesystem::path &path() const { return path_; }

    /** In the module: valid as long as this object. */
    std::span<HeuristicRule *const> rules() const { return rules_; }

private:
    std::filesystem::path path_;
    base::DynamicLibrary library_;
    std::span<HeuristicRule *const> rules_;
};

} // namespace tavrik::scanner

#endif
