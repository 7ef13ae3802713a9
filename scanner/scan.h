/* Scanning one file with the module's rules and its payload locators. */
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
#include "scanner/host_records.h"
#include "scanner/module.h"
#include "scanner/near_miss.h"
#include "scanner/payload.h"
#include "scanner/unpack_budget.h"

namespace tavrik::scanner {

/** A rule that matches the file. */
struct Detection {
    uint32_t rule;         // its number
    std::string_view name; // in the module
    uint32_t action;       // that the module has for it: a CleanAction or CLEAN_ACTION_NONE

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

/** A file to scan, or a stream that is read to its end first. */
struct Input {
    enum class Kind { File, Pipe, StandardInput };

    std::filesystem::path path; // "-" for standard input
    Kind kind = Kind::File;
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

class Deadline;
class Profile;

/** Scans files with one module. Immutable, so that threads can share one. */
class Scanner {
public:
    /** The module must outlive the object. */
    explicit Scanner(const Module &module, const ScanSettings &settings = {});

    /** With rules in place of the module's; these must outlive the object, too. */
    Scanner(const Module &module, std::span<HeuristicRule *const> rules, const ScanSettings &settings);

    /** Scans a file, which is only read, or a stream. Every failure is in the report. `profile`, if not null, measures
     * the steps. */
    FileReport Scan(const Input &input, Profile *profile = nullptr) const;
    FileReport Scan(const std::filesystem::path &file, Profile *profile = nullptr) const {
        return Scan(Input{file}, profile);
    }

    /** Scans what the source reads; the report calls it `name`. Its size and the time are the caller's to limit: the
     * settings' limits do not apply, and what is inside is not scanned. Throws std::bad_alloc. */
    FileReport Scan(base::ByteSource &source, const std::filesystem::path &name) const;

private:
    void ScanInput(const Input &input, FileReport &report, Profile *profile) const;
    void Watch(base::ByteSource &opened, const Deadline &deadline, FileReport &report, Profile *profile) const;
    void Examine(base::ByteSource &source, FileReport &report, const std::filesystem::path &on_disk,
                 Profile *profile) const;
    void Detect(evaluation::Features &features, const base::ByteSource &source, FileReport &report,
                const std::filesystem::path &on_disk, Profile *profile) const;
    void ScanInside(base::ByteSource &source, FileReport &report, const Deadline &deadline, Profile *profile) const;

    const Module &module_;
    std::span<HeuristicRule *const> rules_;
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
