/* A platform in place of platform.hbx and a host in place of the engine. Both write every call of the module into one
 * list of events and fail where they are told to. */
#ifndef TAVRIK_TESTS_SUPPORT_PLATFORM_DOUBLE_H
#define TAVRIK_TESTS_SUPPORT_PLATFORM_DOUBLE_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tavrik2/host_config.h"

namespace tavrik::tests {

/** What the platform and the host answer, and what they were asked. */
struct PlatformDouble {
    std::set<std::string> missing; // modules by full path, symbols by name
    std::string own_directory = "home";
    bool handle_fails = false;
    bool lock_fails = false;
    bool alloc_fails = false;

    std::vector<std::string> events;
    std::function<void(const std::string &event)> watch; // called with each, if set
    int live_blocks = 0;                                 // of PlatformAlloc
    int live_modules = 0;                                // of PlatformLoadModule

    /** The events so far, and forgets them. */
    std::vector<std::string> TakeEvents();
};

/** The double that all platform operations of this program go to. */
PlatformDouble &Platform();

/** A host's block that names `decoder_directory` and the double's services; its unread bytes are not zero. */
HostConfig MakeHostConfig(const char *decoder_directory = "engine");

/** The double's factory of interfaces. */
void *GetInterfaceDouble(uint32_t interface_number, uint32_t companion_number);

} // namespace tavrik::tests

#endif
