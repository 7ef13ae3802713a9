/* tavrik2: the heuristic-scanning module "tavrik2.hbx".
 *
 * This header is all that a host needs: every type that crosses the module's boundary, and the module's exports
 *
 *     YNLibInit, YNLibDeinit   start and stop          host_config.h
 *     HeurGetDetectionInfo     the rule table          heuristic_rule.h
 *     HeurGetLocatorTable      the payload locators    payload_locator.h
 *     HeurClean                the clean decision      heur_clean.h
 *
 * Nothing but integers and pointers crosses; no function throws.
 *
 * Files. tavrik2.hbx, platform.hbx, disasm.hbx and scansdk.hbx belong in one folder. Load tavrik2.hbx by its absolute
 * path: on Linux with dlopen(path, RTLD_NOW | RTLD_LOCAL), on Windows with LoadLibraryEx(path, NULL,
 * LOAD_WITH_ALTERED_SEARCH_PATH), without which platform.hbx beside it is not found.
 *
 * Order. Load, look the five functions up, YNLibInit, work on any threads, YNLibDeinit on one, unload. Only the rules
 * wait for YNLibInit: before it they are in stored form. The tables, the locators and HeurClean need no initialisation.
 *
 * Threads. YNLibInit and YNLibDeinit overlap no other call into the module; everything else may be called from any
 * number of threads at once. The module starts no thread and takes no lock.
 *
 * Copies. Loading the same file again gives the same module, with one count of clients. A second copy of the module,
 * from another folder, has a state and rules of its own, but it is bound to the platform.hbx that is loaded already,
 * and looks for scansdk.hbx in the folder of the copy that was loaded first: use copies of one version.
 *
 * Names. The names of the types are the interface's own and carry no prefix. Where another header has a FileHeader or a
 * SectionHeader too, C++ puts these into a namespace:
 *
 *     #include <stddef.h>
 *     #include <stdint.h>
 *     namespace module_abi {
 *     #include <tavrik2/tavrik2.h>
 *     }
 *
 * and C renames them, or includes this header in one source file only, wrapped in functions of its own:
 *
 *     #define FileHeader Tavrik2FileHeader
 *     #include <tavrik2/tavrik2.h>
 *     #undef FileHeader */
#ifndef TAVRIK2_H
#define TAVRIK2_H

#include "file_stream.h"
#include "heur_clean.h"
#include "heuristic_rule.h"
#include "host_config.h"
#include "payload_locator.h"
#include "section_header.h"

#endif
