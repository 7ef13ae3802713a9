/* From the features of files to a segment's pieces. */
#ifndef TAVRIK_STORE_SEGMENT_WRITER_H
#define TAVRIK_STORE_SEGMENT_WRITER_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "store/stored_file.h"

namespace tavrik::store {

/** A piece of a segment. */
struct Piece {
    uint32_t number = 0; // see layout.h
    std::string bytes;
};

/** Keeps count of whether files still fit into one segment. */
class SegmentRoom {
public:
    /** Counts a file; false when it does not fit any more, and then it does not count. */
    bool Add(const StoredFile &file);

private:
    std::size_t rows_ = 0;
    std::size_t path_bytes_ = 0;
    std::size_t more_section_bytes_ = 0;
    std::size_t tokens_ = 0;
};

/** The pieces of a segment of these files, which a SegmentRoom has room for. */
std::vector<Piece> EncodeSegment(std::span<const StoredFile> files);

} // namespace tavrik::store

#endif
