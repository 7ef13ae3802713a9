/* The operations of platform.hbx, the product's operating-system services. Bound by ordinal on Windows (the numbers in
 * platform/platform.def) and by name where the system has no ordinals.
 *
 * Sizes are unsigned 32-bit byte counts; strings are NUL-terminated 8-bit strings. */
#ifndef TAVRIK2_LIFECYCLE_PLATFORM_H
#define TAVRIK2_LIFECYCLE_PLATFORM_H

#include "tavrik2/abi.h"
#include "tavrik2/host_config.h"

TAVRIK_EXTERN_C_BEGIN

/* Ordinal 1. Writes to `directory` (of `capacity` bytes) the directory from which the loaded module with this file name
 * came. Returns nonzero on success, 0 when no such module is loaded or the directory does not fit. */
uint32_t PlatformGetModuleDirectory(const char *file_name, char *directory, uint32_t capacity);

/* Ordinal 5. Loads a module by its full path. Returns its handle, owned by the caller, or null. */
void *PlatformLoadModule(const char *path);

/* Ordinal 6. Releases a handle of PlatformLoadModule. */
void PlatformFreeModule(void *module);

/* Ordinal 7. Returns the address of an exported symbol, or null when the module has none of that name. */
void *PlatformGetSymbol(void *module, const char *name);

/* Ordinal 8. Appends one message line to a log file. */
void PlatformWriteLog(const char *path, const char *line);

/* Ordinal 18. Creates a handle in `slot`. Returns nonzero on success, 0 on failure. */
uint32_t PlatformCreateHandle(void **slot);

/* Ordinal 19. Releases a handle of PlatformCreateHandle; null is ignored. */
void PlatformReleaseHandle(void *handle);

/* Ordinal 23. Told of every YNLibInit with its four arguments. */
void PlatformAttach(void *first, const HostConfig *config, GetInterface get_interface, void *fourth);

/* Ordinal 24. Returns a writable block of at least `size` bytes, owned by the caller, or null; both zeros are 0. */
void *PlatformAlloc(uint32_t size, uint32_t zero_1, uint32_t zero_2);

/* Ordinal 27. Releases a block of PlatformAlloc; null is ignored. */
void PlatformFree(void *block);

/* Ordinal 43. Copies `source` into `destination` of `capacity` bytes; a source that does not fit leaves "". */
void PlatformCopyString(char *destination, uint32_t capacity, const char *source);

/* Ordinal 44. Makes `destination`, of `capacity` bytes and holding a directory, name the file inside that directory; a
 * path that does not fit leaves "". */
void PlatformAppendPath(char *destination, uint32_t capacity, const char *file_name);

TAVRIK_EXTERN_C_END

#endif
