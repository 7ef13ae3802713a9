/* The commands of tavrik-rules. All throw base::Error where a file or module cannot be read or written, and
 * base::ClosedPipe where nobody reads standard output. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_COMMANDS_H
#define TAVRIK_TOOLS_TAVRIK_RULES_COMMANDS_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/scanning/scan_options.h"
#include "tools/tavrik-rules/rule_source.h"

namespace tavrik::rules_tool {

enum ExitCode : int {
    kFine = 0,
    kErrorsFound = 1,   // in the rules; a profile that is not met; texts that fmt --check would change
    kWarningsFound = 2, // and no errors (check alone)
    kFailed = 3         // wrong usage, or a file or module that cannot be read or written
};

enum class CheckFormat { Text, JsonLines, Sarif };

/** check: parses every file and prints what it finds. */
ExitCode Check(const std::vector<std::string> &files, CheckFormat format);

/** compile: all files, in order, to the database's source in `folder`. Files whose text is the same are left alone. */
ExitCode Compile(const std::vector<std::string> &files, const std::filesystem::path &folder);

/** fmt: rewrites each file in place; with `check` lists those that would change; "-" is standard input to output. */
ExitCode Format(const std::vector<std::string> &files, bool check);

/** dump: all rules as canonical text. */
ExitCode Dump(const RuleSource &source);

/** stats: counts of lists and values; with `verify` every fact of the published profile, expected and actual. */
ExitCode Stats(const RuleSource &source, bool verify, bool json);

/** list: a line for each rule. */
ExitCode List(const RuleSource &source, bool json);

/** show: the text of the rules with a number, or of those whose name contains `wanted`. */
ExitCode Show(const RuleSource &source, const std::string &wanted);

struct TryOptions {
    scanning::ScanOptions run;
    std::vector<std::string> arguments; // rule files by their suffix, and files and folders to try the rules on
};

/** try: scans with rule files alone, without a module. Files that cannot be read are reported, and the others tried;
 * the end is then kFailed. Returns an ExitCode, or 128 plus a signal's number. */
int Try(TryOptions options);

/** values: everything that a rule could ask of the files, of several what they share, as one rule. */
ExitCode Values(const std::vector<std::string> &files);

struct DraftOptions {
    std::vector<std::string> files;
    std::vector<std::string> corpus; // folders, and lists of files
    std::string name = "Draft";
    uint32_t rule_id = 1;
};

/** draft: a rule that all files match, and as few files of the corpus as can be; kWarningsFound where some are left. */
ExitCode MakeDraft(const DraftOptions &options);

struct SpecimenOptions {
    uint32_t rule_id = 0;
    std::optional<std::size_t> place; // in the table, for ids that several rules have
    std::string output;
    bool force = false; // overwrite `output`
};

/** specimen: writes the PE file that a rule of the reference database was made from. */
ExitCode WriteSpecimen(const SpecimenOptions &options);

/** export-yara: writes the rules that YARA can express to the file `output` (empty: standard output), the others with
 * the reason why not to `report` (empty: nowhere), a rule a line: id, name, reason, with tabs between. Counts of the
 * reasons go to standard error. */
ExitCode ExportToYara(const RuleSource &source, const std::string &output, const std::string &report);

} // namespace tavrik::rules_tool

#endif
