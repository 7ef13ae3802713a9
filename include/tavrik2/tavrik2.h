/* tavrik2: the heuristic-scanning module "tavrik2.hbx".
 *
 * This header is all that a host needs: every type that crosses the module's boundary, and the module's exports
 *
 *     YNLibInit, YNLibDeinit   start and stop          lifecycle/host_config.h
 *     HeurGetDetectionInfo     the rule table          rules/heuristic_rule.h
 *     HeurGetLocatorTable      the payload locators    locators/payload_locator.h
 *     HeurClean                the clean decision      clean/heur_clean.h
 *
 * Nothing but integers and pointers crosses; no function throws. */
#ifndef TAVRIK2_H
#define TAVRIK2_H

#include "file_stream.h"
#include "heur_clean.h"
#include "heuristic_rule.h"
#include "host_config.h"
#include "payload_locator.h"
#include "section_header.h"

#endif
