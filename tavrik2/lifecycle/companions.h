/* The companion modules that the module loads at its first initialisation and releases at its last. It looks their
 * entry points up and keeps the addresses; none of its own operations calls them. */
#ifndef TAVRIK2_LIFECYCLE_COMPANIONS_H
#define TAVRIK2_LIFECYCLE_COMPANIONS_H

namespace tavrik2 {

/** Loads the instruction decoder "disasm.hbx" from `directory` with its five entry points. Returns 1, or 0 with nothing
 * left loaded: when `directory` is null, the decoder is loaded already, or the module or one of its symbols is missing.
 */
int LoadDecoder(const char *directory);

/** Releases the decoder; does nothing when it is not loaded. */
void UnloadDecoder();

/** Loads "scansdk.hbx" from the folder of the loaded module `own_file_name`. Returns 1, or 0 with nothing left loaded.
 */
int LoadScanSdk(const char *own_file_name);

/** Releases the scan SDK, which must be loaded. Returns 1. */
int UnloadScanSdk();

} // namespace tavrik2

#endif
