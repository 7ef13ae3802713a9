/* The loaded module, tavrik2.hbx, and the services that the host supplies to it. */
#ifndef TAVRIK_SCANNER_MODULE_H
#define TAVRIK_SCANNER_MODULE_H

#include <cstdint>
#include <filesystem>
#include <span>

#include "base/system.h"
#include "scanner/module_stream.h"
#include "tavrik2/tavrik2.h"

namespace tavrik::scanner {

/** What the module says about cleaning a file. */
struct CleanDecision {
    bool applies;    // an action applies
    uint32_t action; // a CleanAction or CLEAN_ACTION_NONE
};

/** The module, loaded and initialised for the life of the object. Any thread may call any member, and several objects
 * can be of one module. */
class Module {
public:
    /** Loads and initialises the module. Throws base::Error when it cannot be used, with the codes that are for that.
     */
    explicit Module(const std::filesystem::path &path = DefaultPath());
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    /** The module that belongs to the running program, see base::DefaultModulePath. */
    static std::filesystem::path DefaultPath();

    /** The module's file, absolute. */
    const std::filesystem::path &path() const { return path_; }

    /** The payload locators, in place: valid as long as this object. */
    std::span<const LocatorTableEntry> locators() const { return locators_; }

    /** The heuristic rules, in place: valid as long as this object. */
    std::span<HeuristicRule *const> rules() const { return rules_; }

    /** Asks which clean action applies to `file`, detected by the rule `rule_id`; `code` is the host's code for what it
     * found. The module opens the file for reading and writing, and closes it. */
    CleanDecision AskCleanAction(const std::filesystem::path &file, uint32_t code, uint32_t rule_id) const;

    /** The same for callers that only show the action: the file is opened for reading only, so that files that may not
     * be written get an answer too and none is touched. */
    CleanDecision PreviewCleanAction(const std::filesystem::path &file, uint32_t code, uint32_t rule_id) const;

    /** The same for what is no file of its own, such as bytes in memory: it counts as one that can be opened. */
    CleanDecision PreviewCleanAction(uint32_t code, uint32_t rule_id) const;

private:
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
