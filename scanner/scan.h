/* The scanner: rules and payload locators, asked about one file after the other. */
#ifndef TAVRIK_SCANNER_SCAN_H
#define TAVRIK_SCANNER_SCAN_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/byte_source.h"
#include "evaluation/features.h"
#include "evaluation/rule_index.h"
#include "rules/record/record_builder.h"
#include "scanner/host_records.h"
#include "scanner/module.h"
#include "scanner/near_miss.h"
#include "scanner/open_input.h"
#include "scanner/payload.h"
#include "scanner/unpack_budget.h"

namespace tavrik::scanner {

/** A rule that matches the file. */
struct Detection {
    uint32_t rule;         // its number
    std::string name;      // of the detection
    uint32_t action;       // that the module has for rules of that number: a CleanAction or CLEAN_ACTION_NONE
    std::size_t place = 0; // of the rule, in the scanner's
    std::vector<rules::MetadataEntry> metadata = {};

    bool operator==(const Detection &) const = default;
};

/** How the scan of a file ended. */
enum class ScanStatus {
    Scanned,
    NotPe,      // not a PE file, so nothing is scanned
    Skipped,    // because of the settings; `error` says why
    Failed,     // `error` says why; what was found before is kept
    Interrupted // the user asked the program to end; the report is not complete
};

/** Something about a file that is no failure, for programs and for people. */
struct Note {
    std::string_view code; // a word such as "searched-in-part"
    std::string text;
};

/** The results of scanning a file, which may be inside another one. */
struct FileReport {
    std::filesystem::path file;                  // of a file inside another one "setup.exe!$INSTDIR/x.exe"
    std::optional<std::filesystem::path> parent; // the file that it is inside of
    std::optional<uint64_t> size;                // in bytes, when the file could be opened
    std::string sha256;                          // in hexadecimal digits; "" when not asked for or not known
    ScanStatus status = ScanStatus::Failed;
    std::string error;                                    // the reason and the remedy, without the file's name
    base::ErrorCode error_code = base::ErrorCode::Failed; // of `error`
    std::vector<Note> notes;
    uint64_t bytes_read = 0;                  // by the scan, from the file or stream
    std::optional<uint64_t> missing_bytes;    // of a PE file: how many its section table says are there beyond its end
    std::shared_ptr<base::ByteSource> stream; // what was read of an input that cannot be opened again; else null
    std::vector<Detection> detections;
    std::vector<Finding> findings;             // what each locator said
    std::vector<Payload> payloads;             // what is there, each once
    std::optional<std::vector<NearMiss>> near; // no findings; when they were asked for and searched for
    std::vector<base::Region> read;            // when asked for: the bytes that were read, in order
    std::vector<FileReport> inside;            // of its payloads, or of an archive, in the container's order

    /** Calls `visit` with this report and with those inside, each before what is inside it. */
    template <typename Visit>
    void ForEach(const Visit &visit) const {
        visit(*this);
        for (const FileReport &report : inside)
            report.ForEach(visit);
    }
};

/** Options and limits of a scan. */
struct ScanSettings {
    bool sha256 = false;
    std::optional<uint64_t> max_size; // in bytes; larger files are skipped
    double timeout = 0;               // seconds for a file with all that is inside; 0 is no limit
    bool inside = true;               // files inside payloads and archives are scanned too
    unsigned inside_depth = 4;        // containers that are opened within each other
    UnpackLimits inside_limits;
    std::size_t near_conditions = 0; // of a gate that may fail in a near miss; 0: near misses are not asked for
    bool record_reads = false;       // in the report
};

/** Rules besides those of the module. */
struct MoreRules {
    std::shared_ptr<const rules::record::RecordSet> records; // null for none
    std::shared_ptr<const rules::RuleSet> texts = nullptr;   // what the records were made of, for their metadata
    bool only = false;                                       // the module's rules are left out
};

class Profile;

/** What scans: a module, rules and settings. The programs and the C interface are made of it. Immutable, so that
 * threads can share one; it keeps what it is made of. */
class Scanner {
public:
    /** Without a module (null) all rules are those of `more`, and no locator is asked and no clean action. The rules of
     * `more` come after the module's. */
    explicit Scanner(std::shared_ptr<const Module> module, const ScanSettings &settings = {}, MoreRules more = {});
    Scanner(const Scanner &) = delete;
    Scanner &operator=(const Scanner &) = delete;

    /** Null when there is none. */
    const Module *module() const { return module_.get(); }
    const ScanSettings &settings() const { return settings_; }

    /** All rules that are asked, in their order. */
    std::span<HeuristicRule *const> rules() const { return rules_; }

    /** How many of them, at the end, are not the module's. */
    std::size_t more_rules() const { return more_.records == nullptr ? 0 : more_.records->rules().size(); }

    /** What the text of a rule says about it; nothing for the module's. `place` is that in rules(). */
    std::span<const rules::MetadataEntry> MetadataOf(std::size_t place) const;

    /** Scans a file, which is only read, or a stream. Every failure is in the report. `profile`, if not null, measures
     * the steps. */
    FileReport Scan(const Input &input, Profile *profile = nullptr) const;
    FileReport Scan(const std::filesystem::path &file, Profile *profile = nullptr) const {
        return Scan(Input{file}, profile);
    }

    /** Scans what the source reads until the deadline; the report calls it `name`. It is no file on the disk, so that
     * clean actions are those of one that can be opened. Throws std::bad_alloc. */
    FileReport Scan(base::ByteSource &source, const std::filesystem::path &name, const Deadline &deadline) const;
    FileReport Scan(base::ByteSource &source, const std::filesystem::path &name) const;

    /** The module's action for a file that a rule matches; `file` empty: for what is no file on the disk. */
    uint32_t ActionFor(const HeuristicRule &rule, const std::filesystem::path &file) const;

private:
    void ScanInput(const Input &input, FileReport &report, Profile *profile) const;
    bool IsTooLarge(uint64_t size, FileReport &report) const;
    void Watch(base::ByteSource &opened, const Deadline &deadline, FileReport &report,
               const std::filesystem::path &on_disk, Profile *profile) const;
    void Examine(base::ByteSource &source, FileReport &report, const std::filesystem::path &on_disk,
                 Profile *profile) const;
    void Detect(evaluation::Features &features, const base::ByteSource &source, FileReport &report,
                const std::filesystem::path &on_disk, Profile *profile) const;
    void ScanInside(base::ByteSource &source, FileReport &report, const Deadline &deadline,
                    const std::filesystem::path &on_disk, Profile *profile) const;

    std::shared_ptr<const Module> module_;
    MoreRules more_;
    std::vector<HeuristicRule *> rules_;
    ScanSettings settings_;
    evaluation::RuleIndex index_;
};

/** The detection name of a rule. */
std::string_view DetectionName(const HeuristicRule &rule);

/** Calls one locator with `records` and the candidate `first_section`, on a stream of its own over `source`. */
std::optional<Finding> RunLocator(const Module &module, uint32_t entry, base::ByteSource &source,
                                  const HostRecords &records, const SectionHeader &first_section);

/** Calls every locator with every candidate for the first section. Returns the distinct findings in the table's order.
 * Of a source that is larger than kLargestFile only the beginning is searched. */
std::vector<Finding> RunLocators(const Module &module, base::ByteSource &source, const HostRecords &records);

/** What is said of a file of `size` bytes, more than kLargestFile, of which the locators search only the beginning. */
std::string SearchedInPartText(uint64_t size);

} // namespace tavrik::scanner

#endif
