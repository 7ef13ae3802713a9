/* Payloads that no entry of the locator table finds: those that an entry would find if its gate asked for a little
 * less, and those of builds that no entry knows. They are no findings. */
#ifndef TAVRIK_SCANNER_NEAR_MISS_H
#define TAVRIK_SCANNER_NEAR_MISS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "base/file_bytes.h"
#include "pe/image.h"
#include "scanner/host_records.h"
#include "scanner/payloads/extent.h"

namespace tavrik::scanner {

/** A condition of a gate that a file does not meet, in words. */
struct FailedCondition {
    std::string field;  // "SizeOfCode"
    std::string value;  // that the file has
    std::string wanted; // by the gate

    bool operator==(const FailedCondition &) const = default;
};

/** An entry whose gate a file does not pass. */
struct MissedEntry {
    uint32_t entry = 0;                       // of the locator table
    std::vector<FailedCondition> failed = {}; // the fewest of all ways through the gate, in its order

    bool operator==(const MissedEntry &) const = default;
};

/** A payload that no entry finds. */
struct NearMiss {
    enum class Status {
        NearMiss,    // the searches of `entries` find it, below their gates
        UnknownBuild // it begins where payloads usually begin; the gate of the only entry is the nearest
    };

    Status status = Status::NearMiss;
    uint32_t kind = 0;                           // a PayloadKind
    uint64_t offset = 0;                         // in the file, of its first byte; of its marker without an extent
    std::optional<payloads::Extent> extent = {}; // nothing for altered markers, which no reader knows
    std::vector<MissedEntry> entries = {};       // the nearest first

    bool operator==(const NearMiss &) const = default;
};

/** The most conditions that a gate can fail in; more cannot be asked for. */
inline constexpr std::size_t kMostFailedConditions = 64;

/** Searches a file, parsed to `image` and `records`, as every entry would whose gate it fails in at most `most_failed`
 * conditions, and then where payloads of the known formats usually begin. What begins within `known`, the payloads that
 * entries found, is left out; so is what the readers of the formats do not confirm. In the order of the offsets.
 * Of a source that is larger than kLargestFile the entries search only the beginning. */
std::vector<NearMiss> FindNearMisses(base::ByteSource &source, const pe::Image &image, const HostRecords &records,
                                     std::size_t most_failed, std::span<const base::Region> known);

/** The first half of it: what searches below the gates find. */
std::vector<NearMiss> SearchBelowGates(base::ByteSource &source, const HostRecords &records, std::size_t most_failed,
                                       std::span<const base::Region> known);

/** The second: payloads that begin with a section, a resource or the overlay, or at a multiple of 512 bytes within the
 * overlay, as far as these places are bounded. */
std::vector<NearMiss> FindUnknownBuilds(base::ByteSource &source, const pe::Image &image, const HostRecords &records,
                                        std::span<const base::Region> known);

/** What the gate of `entry` asks for and the file does not have, by the candidate for the first section that comes
 * nearest. No condition: the gate passes. */
MissedEntry JudgeEntry(uint32_t entry, base::ByteSource &source, const HostRecords &records);

} // namespace tavrik::scanner

#endif
