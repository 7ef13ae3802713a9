/* Rule files with the files that they include. */
#ifndef TAVRIK_RULES_TEXT_RULE_FILES_H
#define TAVRIK_RULES_TEXT_RULE_FILES_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"

namespace tavrik::rules::text {

/** The file name that means standard input. */
inline constexpr std::string_view kStandardInput = "-";

inline constexpr std::size_t kMostIncluded = 16;            // files that include one another, one in the other
inline constexpr std::size_t kLargestRuleFile = 256u << 20; // bytes of a file that is included

/** A rule file and what was found in it. */
struct RuleFile {
    Source source;
    ParsedFile parsed; // views into the source

    /** Reads and parses a file. Throws base::Error when it cannot be read. */
    explicit RuleFile(const std::string &name);
    RuleFile(const std::string &name, std::string text);
    RuleFile(const RuleFile &) = delete;
    RuleFile &operator=(const RuleFile &) = delete;
};

using RuleFiles = std::vector<std::unique_ptr<RuleFile>>;

/** Reads rule files and, before each, those that it includes, by paths from its folder; from standard input those of
 * the current folder. A file that was read already is not read again for an include. */
class RuleFileReader {
public:
    /** Adds a file and those that it includes. Throws base::Error when the file itself cannot be read; an include that
     * cannot be is an error at its place. */
    void Read(const std::string &name);

    /** The files, those that are included before those that include them. */
    const RuleFiles &files() const { return files_; }

    /** The rules of all files, in order. */
    RuleSet Rules() const;

    bool HasErrors() const;

private:
    void Add(std::unique_ptr<RuleFile> file, const std::filesystem::path &path);
    void ReadInclude(RuleFile &file, const std::filesystem::path &path, const Include &include);

    RuleFiles files_;
    std::set<std::filesystem::path> named_;
    std::set<std::filesystem::path> included_;
    std::vector<std::filesystem::path> open_; // that are being read, each included by the one before
};

} // namespace tavrik::rules::text

#endif
