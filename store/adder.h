/* Adding files to a store. */
#ifndef TAVRIK_STORE_ADDER_H
#define TAVRIK_STORE_ADDER_H

#include <array>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "store/segment_writer.h"
#include "store/store.h"

namespace tavrik::store {

/** What an addition did. */
struct AddCounts {
    uint64_t added = 0;
    uint64_t replaced = 0;  // they were in the store, and have changed
    uint64_t unchanged = 0; // by size and time
    uint64_t set_aside = 0; // they cannot be read
};

/** How files are added. */
struct AddSettings {
    bool with_digests = true;             // compute the SHA-256 of files, for which they are read whole
    bool compare_digests = false;         // read files even when size and time are the same; replace by digest
    std::size_t files_of_a_commit = 8192; // a commit comes after so many, and after some seconds
};

/** Adds files to a store, and commits now and then: a program that is killed loses at most the work of some seconds,
 * and the next run goes on. Keeps 40 bytes of memory for each file in the store, and the features of one segment. */
class Adder {
public:
    /** Reads the paths of all files in the store, which must outlive the object and be open for changes. */
    explicit Adder(Store &store, const AddSettings &settings = {});

    /** What was found out about one path. */
    struct Examined {
        std::string path;
        std::optional<StoredFile> file;      // to add
        std::optional<std::size_t> replaces; // position among the known files
        std::string fault;                   // without a file: why it is set aside; "": it is unchanged
        std::optional<Stamp> barred;         // with a fault: it was not read, and is not while it has this stamp
    };

    /** Reads a file, unless it is known and the same. Never throws for what a file contains or does. Any thread. */
    Examined Examine(const std::filesystem::path &path) const;

    /** The same for features that another store has: the newer ones count. */
    Examined Examine(StoredFile file) const;

    /** The files that are set aside because reading them ended a program. */
    std::vector<std::string> Barred() const;

    /** Sets a file aside for such a reason, and commits; a file that is gone is left out. It is not read as long as it
     * is the same. Before any file is examined, like Release. Throws base::Error. */
    void Bar(const std::string &path, const std::string &reason);

    /** Lets a file be read that was set aside so. */
    void Release(const std::string &path);

    /** Adds what was examined. One thread at a time. Throws base::Error. */
    void Take(Examined examined);

    /** Commits all that was taken, and joins small segments. Throws base::Error. */
    void Finish();

    const AddCounts &counts() const { return counts_; }

private:
    using Clock = std::chrono::steady_clock;
    using Key = std::array<uint8_t, 16>; // of the SHA-256 of a path

    struct Known {
        Key key;
        uint32_t segment; // in entries_
        Row row;
        Stamp stamp;
    };

    static Key KeyOf(std::string_view path);
    std::optional<std::size_t> Find(std::string_view path) const;
    bool HasDigest(const Known &known, const base::Sha256::Digest &digest);
    void MarkGone(const Known &known);
    void Checkpoint();
    void WriteSegment();
    void ApplyMarks();
    void JoinSmallSegments();

    Store &store_;
    AddSettings settings_;
    std::vector<SegmentEntry> entries_;
    std::vector<Known> known_;            // by key
    std::set<Key> taken_;                 // in this run
    std::map<std::string, Fault> faults_; // by path
    std::vector<StoredFile> pending_;     // of the next segment
    SegmentRoom room_;
    std::size_t committed_ = 0;        // of pending_, in segments of their own
    std::vector<int64_t> checkpoints_; // those
    std::set<uint32_t> marked_;        // in entries_, not yet committed
    std::vector<Fault> new_faults_;
    std::vector<std::string> mended_; // paths that are no faults any more
    Clock::time_point last_commit_;
    std::unique_ptr<Segment> digests_; // the segment of which digests were asked last
    uint32_t digests_of_ = 0;
    AddCounts counts_;
};

/** Takes all files out of a store whose path is one of `paths` or below it. Returns how many there were. */
uint64_t Forget(Store &store, const std::vector<std::string> &paths);

} // namespace tavrik::store

#endif
