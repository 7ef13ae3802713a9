/* What the host hands to YNLibInit, and the module's start and stop. */
#ifndef TAVRIK2_HOST_CONFIG_H
#define TAVRIK2_HOST_CONFIG_H

#include "abi.h"

TAVRIK_PACKED_BEGIN

/* A service that the module never calls; it may be null. */
typedef void (*UnusedService)(void);

/* The host's table of service functions; a function's position in the table is the interface. */
typedef struct TAVRIK_PACKED_OBJECT HostServices {
    UnusedService unused_0[114];
    /* Called once by each first initialisation, also by one that fails later. The result is not used; must be there. */
    uint32_t (*Service114)(void);
    UnusedService unused_115[117];
    /* Creates a lock in `slot`; `kind` is always 2, `zero` always 0. Returns nonzero on success; 0 makes YNLibInit
     * return 0. The module never acquires the lock: it hands the slot's value to DestroyLock, at the last release or
     * when the first initialisation fails after this. */
    uint32_t (*CreateLock)(void **slot, uint8_t kind, uint32_t zero);
    void (*DestroyLock)(void *lock);
} HostServices;

/* The host's configuration block. The module copies all of it at the first initialisation and reads the named fields
 * from the copy; the host may let go of its own after the call. Set the rest to zero. */
typedef struct TAVRIK_PACKED HostConfig {
    uint8_t unread_0[1026];
    /* The folder of disasm.hbx, which is required. NUL-terminated, in the system's 8-bit form (the active code page on
     * Windows), with or without a separator at its end; absolute, since a relative one follows the current folder. It
     * has room for 1012 bytes: a path that does not fit together with the file's name makes YNLibInit return 0, and so
     * does an empty one. */
    char decoder_directory[1024];
    uint8_t unread_2050[1028];
    void *retained_value; /* kept until the last release, not otherwise used */
    const HostServices *services;
    uint8_t unread_3094[8];
} HostConfig;

TAVRIK_PACKED_END

/* The host's factory of interfaces: an interface number and a number that goes with it. The first initialisation asks
 * for (5, 496), (6, 408) and (8, 976), in this order. The module keeps the three results and never uses them: a host
 * that has no such interfaces returns null. The function itself must be there. */
typedef void *(*GetInterface)(uint32_t interface_number, uint32_t companion_number);

TAVRIK_EXTERN_C_BEGIN

/* Initialises the module, or counts one more client: then nothing of `config` is read.
 *
 * first, fourth   anything; platform.hbx is told and makes no use of them: null will do
 * config          not null; used during the call only, but the services that it names must outlive the last YNLibDeinit
 * get_interface   not null; called during the call only
 *
 * Not to be overlapped with any other call into the module. Each client that got a count calls YNLibDeinit once.
 *
 * Returns the new reference count, or 0 when the first initialisation fails, without a word why: CreateLock returned 0;
 * or disasm.hbx cannot be loaded from `decoder_directory` (it is missing, is not for this system, the path is empty,
 * too long or not NUL-terminated) or lacks one of the five functions that the module looks up. Nothing stays
 * initialised then and the call may be made again. scansdk.hbx, which is looked for beside tavrik2.hbx, may be missing.
 */
TAVRIK_API uint32_t YNLibInit(void *first, const HostConfig *config, GetInterface get_interface, void *fourth);
typedef uint32_t (*YNLibInitFunction)(void *first, const HostConfig *config, GetInterface get_interface, void *fourth);

/* Takes one client away; the last one releases everything but the prepared rules. Returns the remaining reference
 * count. A call without a matching YNLibInit says so on standard output and in the log (c:\yndebug.log on Windows,
 * yndebug.log in the current folder elsewhere), and returns 0. Not to be overlapped with any other call into the
 * module. Call it before the module is unloaded: unloading alone leaves the companions loaded and the lock undestroyed.
 */
TAVRIK_API uint32_t YNLibDeinit(void);
typedef uint32_t (*YNLibDeinitFunction)(void);

TAVRIK_EXTERN_C_END

TAVRIK_ASSERT_OFFSET(HostServices, Service114, 114 * 8);
TAVRIK_ASSERT_OFFSET(HostServices, CreateLock, 232 * 8);
TAVRIK_ASSERT_OFFSET(HostServices, DestroyLock, 233 * 8);
TAVRIK_ASSERT_SIZE(HostServices, 234 * 8);

TAVRIK_ASSERT_SIZE(HostConfig, 3102);
TAVRIK_ASSERT_OFFSET(HostConfig, decoder_directory, 1026);
TAVRIK_ASSERT_OFFSET(HostConfig, retained_value, 3078);
TAVRIK_ASSERT_OFFSET(HostConfig, services, 3086);

#endif
