/* The commands of tavrik-scan. */
#ifndef TAVRIK_HOST_COMMANDS_H
#define TAVRIK_HOST_COMMANDS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::host {

/** How the program ends; of several, the greatest. */
enum ExitCode {
    kNothingFound = 0,
    kFound = 1,
    kErrorHappened = 2,
};

struct ScanOptions {
    std::vector<std::filesystem::path> paths;
    bool recursive = false;
    bool json = false;
};

/** Scans files and, if so asked, folders. */
ExitCode RunScan(const std::filesystem::path &module, const ScanOptions &options);

/** Explains one entry's answer about one file. */
ExitCode RunExplain(const std::filesystem::path &module, uint32_t entry, const std::filesystem::path &file);

/** Lists the locator table in words. */
ExitCode RunLocators();

/** Asks the module for the clean action of a rule; kFound when one applies. */
ExitCode RunCleanAction(const std::filesystem::path &module, uint32_t rule_id, const std::filesystem::path &file,
                        uint32_t code);

/** Writes a text, complete lines or "", to standard output, at once. Throws std::runtime_error when that fails. */
void Print(const std::string &text);

/** Writes one line about a file to standard error. */
void ReportError(const std::filesystem::path &file, const std::string &reason);

} // namespace tavrik::host

#endif
