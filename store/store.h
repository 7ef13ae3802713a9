/* A store: one file with the features of many. It is an SQLite database, whose transactions keep it whole when a
 * program is killed; the features are in compressed columns (layout.h). */
#ifndef TAVRIK_STORE_STORE_H
#define TAVRIK_STORE_STORE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "store/segment.h"
#include "store/segment_writer.h"

namespace tavrik::store {

/** A segment as the store lists it. */
struct SegmentEntry {
    int64_t id = 0;
    std::size_t rows = 0;
    std::vector<bool> is_gone; // rows that were replaced or forgotten; may be shorter than `rows`

    std::size_t live() const;
};

/** A file that was set aside, because it could not be read. */
struct Fault {
    std::string path;
    std::string reason;
    std::optional<Stamp> stamp = std::nullopt; // while it has this one it is not read again: that ended a program
};

/** The bytes of pieces of a kind, for statistics. */
struct PieceSize {
    uint32_t number = 0;
    uint64_t bytes = 0; // of all segments
};

/** An open store. Serves one thread; several objects may read one store. While one writes, nobody else may have the
 * store open. Every member throws base::Error; a store of wrong content gives Damaged. */
class Store {
public:
    enum class Access {
        Read,   // a store that exists
        Write,  // the same, for changing it
        Create, // for changing it; it is made when it is missing
    };

    Store(const std::filesystem::path &path, Access access);

    /** A store whose bytes are in memory, for reading. They are copied. */
    explicit Store(std::span<const uint8_t> bytes);

    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    /** The segments, ascending. */
    std::vector<SegmentEntry> Segments();

    /** A segment, which must not outlive the store. */
    std::unique_ptr<Segment> Open(const SegmentEntry &entry);

    /** The files that were set aside, by path. */
    std::vector<Fault> Faults();

    std::vector<PieceSize> PieceSizes();

    /** The bytes of the store. */
    uint64_t size();

    /** Throws Damaged unless the database is whole. The segments are not read. */
    void CheckDatabase();

    /** Changes between the two are made at once or not at all. Without Commit the next Begin or the end drops them. */
    void Begin();
    void Commit();

    /** Gives the room of what was removed back to the system. */
    void Shrink();

    /** Changes. Append returns the new segment's id. */
    int64_t Append(std::span<const StoredFile> files) { return Append(EncodeSegment(files), files.size()); }
    int64_t Append(std::span<const Piece> pieces, std::size_t rows);
    void Remove(int64_t segment);
    void SetGone(const SegmentEntry &entry);
    void AddFault(const Fault &fault);
    void RemoveFault(std::string_view path);

private:
    class Database;
    class Statement;

    std::unique_ptr<Database> database_;
};

} // namespace tavrik::store

#endif
