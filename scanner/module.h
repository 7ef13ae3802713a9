/* The loaded module: tavrik2.hbx with its host's side of the bargain. */
#ifndef TAVRIK_SCANNER_MODULE_H
#define TAVRIK_SCANNER_MODULE_H

#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>

#include "base/system.h"
#include "scanner/module_stream.h"
#include "tavrik2/tavrik2.h"

namespace tavrik::scanner {

/** The module cannot be used; the text names the file, the reason and the remedy. */
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** What the module says about cleaning a file. */
struct CleanDecision {
    bool applies;    // an action applies
    uint32_t action; // a CleanAction or CLEAN_ACTION_NONE
};

/** The module, loaded and initialised for the life of the object. Construction and destruction happen on one thread;
 * in between every member may be called from any. */
class Module {
public:
    /** Loads and initialises the module. Throws ModuleError. */
    explicit Module(const std::filesystem::path &path = DefaultPath());
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    /** tavrik2.hbx beside the running program. */
    static std::filesystem::path DefaultPath();

    /** The payload locators, in place: valid as long as this object. */
    std::span<const LocatorTableEntry> locators() const { return locators_; }

    /** The heuristic rules, in place: valid as long as this object. */
    std::span<HeuristicRule *const> rules() const { return rules_; }

    /** Asks which clean action applies to `file`, detected by the rule `rule_id`; `code` is the host's code for what it
     * found. The module opens the file for reading and writing, and closes it. */
    CleanDecision AskCleanAction(const std::filesystem::path &file, uint32_t code, uint32_t rule_id) const;

    /** The same, but the file is opened for reading only, so that files that may not be written get the answer too and
     * nothing is touched: for those who want to know and not to clean. */
    CleanDecision PreviewCleanAction(const std::filesystem::path &file, uint32_t code, uint32_t rule_id) const;

private:
    template <typename Function>
    Function Export(const char *name) const;
    CleanDecision Ask(const std::filesystem::path &file, uint32_t code, uint32_t rule_id, ModuleStream &stream) const;

    std::filesystem::path path_;
    base::DynamicLibrary library_;
    decltype(&YNLibDeinit) deinit_;
    decltype(&HeurClean) clean_;
    std::span<const LocatorTableEntry> locators_;
    std::span<HeuristicRule *const> rules_;
};

} // namespace tavrik::scanner

#endif
