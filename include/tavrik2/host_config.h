/* What the host hands to YNLibInit, and the module's start and stop. */
#ifndef TAVRIK2_HOST_CONFIG_H
#define TAVRIK2_HOST_CONFIG_H

#include "abi.h"

/* A service that the module never calls. */
typedef void (*UnusedService)(void);

/* The host's table of service functions; a function's position in the table is the interface. */
typedef struct TAVRIK_PACKED_OBJECT HostServices {
    UnusedService unused_0[114];
    uint32_t (*Service114)(void); /* called once at the first initialisation; the result is not used */
    UnusedService unused_115[117];
    /* Creates a lock in `slot`; `kind` is always 2, `zero` always 0. Returns nonzero on success. */
    uint32_t (*CreateLock)(void **slot, uint8_t kind, uint32_t zero);
    void (*DestroyLock)(void *lock);
} HostServices;

/* The host's configuration block. The module keeps a copy and reads the named fields from it. */
typedef struct TAVRIK_PACKED HostConfig {
    uint8_t unread_0[1026];
    char decoder_directory[1024]; /* NUL-terminated; the instruction decoder is loaded from here */
    uint8_t unread_2050[1028];
    void *retained_value; /* kept until the last release, not otherwise used */
    const HostServices *services;
    uint8_t unread_3094[8];
} HostConfig;

/* The host's factory of interfaces: an interface number and a number that goes with it. */
typedef void *(*GetInterface)(uint32_t interface_number, uint32_t companion_number);

TAVRIK_EXTERN_C_BEGIN

/* Initialises the module, or counts one more client. `first` and `fourth` go to the platform module unchanged;
 * `config` and `get_interface` must not be null and are used during the call only (the services that `config` names
 * must outlive the last YNLibDeinit). Not to be overlapped with any other call into the module.
 * Returns the new reference count, 0 when the first initialisation fails (it may be tried again). */
TAVRIK_API uint32_t YNLibInit(void *first, const HostConfig *config, GetInterface get_interface, void *fourth);

/* Takes one client away; the last one releases everything. Returns the remaining reference count. A call without a
 * matching YNLibInit says so on standard output and in the log, and returns 0. */
TAVRIK_API uint32_t YNLibDeinit(void);

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
