/* Scanning what is inside a file: the members of its payloads or, of an archive, all members, and what is inside these.
 */
#ifndef TAVRIK_SCANNER_INSIDE_H
#define TAVRIK_SCANNER_INSIDE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "scanner/contents.h"
#include "scanner/scan.h"
#include "scanner/unpack_budget.h"
#include "scanner/watched_source.h"

namespace tavrik::scanner {

/** Longer members (in bytes) are in a temporary file while they are scanned. */
inline constexpr uint64_t kMostInMemory = uint64_t{4} << 20;

/** Longer members (in bytes) are not scanned. */
inline constexpr uint64_t kLongestMember = uint64_t{512} << 20;

/** The scan of what is inside one file. */
class InsideScan {
public:
    /** Scans a source as the file that the report names: fills the report but not its `inside`. */
    using Examine = std::function<void(base::ByteSource &source, FileReport &report)>;

    /** `settings` and `deadline` must outlive the object; `file_size` is that of the file on the disk, in bytes. */
    InsideScan(const ScanSettings &settings, const Deadline &deadline, uint64_t file_size, Examine examine)
        : settings_(settings), deadline_(deadline), examine_(std::move(examine)),
          budget_(settings.inside_limits, file_size) {}

    /** Adds the reports of all members to `report`, which `examine` has filled, and notes what was left out. */
    void Scan(base::ByteSource &source, FileReport &report) { ScanBelow(source, report, report, 0); }

private:
    void ScanBelow(base::ByteSource &source, FileReport &report, FileReport &outermost, unsigned depth);
    void ScanMembers(payloads::Container &container, FileReport &report, FileReport &outermost, unsigned depth);
    void ScanMember(payloads::Container &container, const payloads::Member &member, FileReport &inner,
                    FileReport &outermost, unsigned depth);
    bool MustEnd() const;

    const ScanSettings &settings_;
    const Deadline &deadline_;
    Examine examine_;
    UnpackBudget budget_;
    bool said_depth_ = false;  // in a note
    bool said_budget_ = false; // the same
};

} // namespace tavrik::scanner

#endif
