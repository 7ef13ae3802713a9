/* How many files each rule of a run matches, by folder or label. */
#ifndef TAVRIK_TOOLS_SCANNING_RULE_SUMMARY_H
#define TAVRIK_TOOLS_SCANNING_RULE_SUMMARY_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "scanner/profile.h"
#include "scanner/report_json.h"
#include "scanner/scan.h"

namespace tavrik::scanning {

/** The counts of a run. Any thread may call while it goes on. */
class RuleSummary {
public:
    /** The scanner must outlive the object. */
    explicit RuleSummary(const scanner::Scanner &scanner) : scanner_(scanner) {}

    /** The group of files of that name: the one there is, or a new one. */
    std::size_t Group(const std::string &name);

    /** The group of a path that the user names: of a folder itself, of a file the folder that it is in. */
    std::size_t GroupOf(const std::filesystem::path &path);

    /** Counts a file of a group, with those that are inside it. */
    void Add(const scanner::FileReport &report, std::size_t group);

    /** A line for each rule that is not the module's, and for those of the module that match; `profile` has the times
     * of the whole run. */
    std::string Text(const scanner::Profile &profile) const;

    /** The same as an object with the member "summary", see docs/json.md. */
    scanner::Json Object(const scanner::Profile &profile) const;

private:
    using Counts = std::vector<uint64_t>; // of each group

    std::vector<std::size_t> Shown() const;
    Counts MatchedBy(std::size_t place) const;

    const scanner::Scanner &scanner_;
    std::mutex mutex_;                      // guards the others
    std::vector<std::string> names_;        // of the groups
    Counts files_;                          // that rules could be asked of
    std::map<std::size_t, Counts> matched_; // of each rule that matches, by its place
};

} // namespace tavrik::scanning

#endif
