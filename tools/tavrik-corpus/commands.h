/* The commands of tavrik-corpus. All throw base::Error where a store cannot be used, and base::ClosedPipe where nobody
 * reads standard output. */
#ifndef TAVRIK_TOOLS_TAVRIK_CORPUS_COMMANDS_H
#define TAVRIK_TOOLS_TAVRIK_CORPUS_COMMANDS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "base/error.h"

namespace tavrik::corpus_tool {

enum ExitCode : int {
    kFine = 0,
    kFound = 1, // hunt: a rule matches; add, merge: files were set aside; forget, values: there is nothing
    kFailed = 2 // wrong usage, or something that cannot be read or written
};

/** The exit code of a run that a signal ended is this plus the signal's number. */
inline constexpr int kSignalled = 128;

struct AddOptions {
    std::filesystem::path store;
    std::vector<std::string> paths; // files, and folders with all that is below them
    std::vector<std::string> exclude;
    std::string list; // a file with one path a line; "-" is standard input; empty: none
    unsigned threads = 1;
    bool no_digests = false;         // compute none
    bool digests = false;            // compare digests where size and time are the same
    std::size_t commit_every = 8192; // files
    bool retry = false;              // read files that are set aside because reading them ended a program
    bool quiet = false;              // no lines about files that are set aside
};

/** add: extracts the features of files that the store lacks or that have changed. */
int Add(const AddOptions &options);

struct HuntOptions {
    std::filesystem::path store;
    std::vector<std::string> rules; // files; without any the module's own
    std::filesystem::path module;
    bool with_module = false; // the module's rules besides those of files
    unsigned threads = 1;
    bool no_open = false; // files that must be looked at are named instead
    bool summary = false; // a line for each rule with hits in place of one for each file
    bool json = false;
};

/** hunt: evaluates rules on the stored features, and on the files that these do not decide. */
int RunHunt(const HuntOptions &options);

struct StatsOptions {
    bool fields = false;    // a line for each header value
    bool set_aside = false; // a line for each file that could not be read, with the reason
    bool json = false;
};

/** stats: what the store has and how many bytes a file take. */
int Stats(const std::filesystem::path &store, const StatsOptions &options);

/** values: how many files have each value of a field, the most common first. */
int Values(const std::filesystem::path &store, const std::string &field, std::size_t most, bool json);

/** verify: reads everything in the store. */
int Verify(const std::filesystem::path &store);

/** forget: takes files, and all below folders, out of the store. */
int ForgetPaths(const std::filesystem::path &store, const std::vector<std::string> &paths);

/** merge: adds what other stores have. */
int Merge(const std::filesystem::path &store, const std::vector<std::string> &others);

enum class ExportFormat { Csv, JsonLines };

/** export: writes identity and header values of all files to `output`, or with "" to standard output. */
int Export(const std::filesystem::path &store, ExportFormat format, const std::string &output);

/** The absolute path of a file, without "." and "..", as the store keeps it. */
std::filesystem::path StoredPath(const std::filesystem::path &path);

} // namespace tavrik::corpus_tool

#endif
