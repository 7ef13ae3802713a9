/* The program confines itself before it reads the first file that nobody vouches for. */
#ifndef TAVRIK_TOOLS_SCANNING_CONFINE_H
#define TAVRIK_TOOLS_SCANNING_CONFINE_H

#include <filesystem>
#include <vector>

#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

/** What a command reads or writes. */
using Paths = std::vector<std::filesystem::path>;

/** Leaves the program what the command reads and writes, see base::EnterSandbox, unless the options say otherwise; what
 * the kernel lacks is noted on standard error. To be called when the module is loaded and before threads start. */
void Confine(const ScanOptions &options, const Paths &read, const Paths &write = {});

/** The same for a scan as the options say. Makes the folder for payloads. Throws base::Error when that fails. */
void ConfineScan(const ScanOptions &options);

/** What has to be writable for a file to be made or replaced, or for a folder to be made: what exists of its path. */
Paths ToWriteFile(const std::filesystem::path &file);
Paths ToMakeFolder(const std::filesystem::path &folder);

} // namespace tavrik::scanning

#endif
