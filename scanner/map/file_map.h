/* What a file consists of along its offsets, as data for a picture. */
#ifndef TAVRIK_SCANNER_MAP_FILE_MAP_H
#define TAVRIK_SCANNER_MAP_FILE_MAP_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "base/file_bytes.h"
#include "pe/image.h"

namespace tavrik::scanner::map {

/** What a stretch of a file is by its headers. */
enum class Area : uint8_t {
    Headers,   // up to the end of the section table, and what SizeOfHeaders adds
    Section,   // raw data of a section; where sections share bytes, of the first in the table
    Gap,       // before the end of the sections, and of none
    Overlay,   // after the sections
    Signature, // the certificate table
    Data       // of a file that is no PE file
};

/** A stretch of a file. */
struct Segment {
    Area area = Area::Data;
    base::Region place;
    std::string name;    // of a section, as its header has it; else of the area in words
    double entropy = -1; // bits per byte of what was sampled; -1 when nothing could be read

    bool operator==(const Segment &) const = default;
};

/** What a mark shows. */
enum class MarkKind : uint8_t { Payload, NearMiss, DetectionString };

/** Something that was found in the file. */
struct Mark {
    MarkKind kind = MarkKind::Payload;
    base::Region place;
    std::string label; // in words

    bool operator==(const Mark &) const = default;
};

/** One file along its offsets. */
struct FileMap {
    uint64_t size = 0;              // bytes
    std::vector<Segment> segments;  // the whole file, in order, without gaps
    uint64_t bucket_size = 1;       // bytes of the file that a value of `entropy` is about; the last may be of fewer
    std::vector<double> entropy;    // bits per byte; -1 when nothing could be read
    std::vector<Mark> marks;        // added by the caller
    std::vector<base::Region> read; // what a scan read, in order; added by the caller
};

/** The number of values of a file's entropy, at most. Small files have fewer: a bucket has at least kLeastBucket bytes,
 * or its entropy would say little. */
inline constexpr std::size_t kMostBuckets = 512;
inline constexpr uint64_t kLeastBucket = 512;

/** The bytes of a bucket that are looked at, from its start. Files of 32 MiB and less are looked at as a whole. */
inline constexpr uint64_t kMostSampled = 64 * 1024;

/** The stretches of a file; they cover it once. */
std::vector<Segment> SegmentsOf(const pe::Image &image);

/** The map without marks and reads. Reads all of the file, or a sample of a large one. */
FileMap MakeMap(base::ByteSource &source, const pe::Image &image);

/** Distances of the numbers on an axis over `size` bytes: the smallest power of two that gives at most `most` of them.
 */
uint64_t TickDistance(uint64_t size, std::size_t most);

/** A count of bytes for people: "512 bytes", "8.05 KiB", "1.20 MiB". */
std::string SizeText(uint64_t bytes);

} // namespace tavrik::scanner::map

#endif
