/* Random access to the bytes of one file: few system calls, bounded memory, and no mapping that becomes invalid when
 * the file shrinks. */
#ifndef TAVRIK_BASE_FILE_BYTES_H
#define TAVRIK_BASE_FILE_BYTES_H

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"

namespace tavrik::base {

/** A range of bytes of the file. Absent when its length is 0; otherwise it is completely within the file. */
struct Region {
    uint64_t offset = 0;
    uint64_t length = 0;

    bool IsAbsent() const { return length == 0; }
    uint64_t End() const { return offset + length; }
    bool operator==(const Region &) const = default;
};

/** The longest name that is read, in bytes without its NUL. */
inline constexpr std::size_t kLongestName = 255;

/** Random access to a source that is in memory, or through a small cache of pages to one that is not. What cannot be
 * read is treated as absent; the source keeps the reason. */
class FileBytes {
public:
    /** The source must outlive the object. */
    explicit FileBytes(ByteSource &source);

    uint64_t size() const { return size_; }

    /** Reads `length` bytes at `offset`, all or none. */
    bool Read(uint64_t offset, void *to, std::size_t length);

    /** The little-endian number at `offset`; nothing when it is not completely within the file. */
    template <std::unsigned_integral Number>
    std::optional<Number> Get(uint64_t offset) {
        uint8_t bytes[sizeof(Number)];
        if (!Read(offset, bytes, sizeof(bytes)))
            return std::nullopt;
        Number value = 0;
        for (std::size_t i = sizeof(Number); i-- > 0;)
            value = static_cast<Number>(static_cast<uint64_t>(value) << 8 | bytes[i]);
        return value;
    }

    /** The text at `offset` up to its NUL; nothing when there is none in the file or in the first `longest` + 1
     * bytes. */
    std::optional<std::string> Text(uint64_t offset, std::size_t longest = kLongestName);

    /** The bytes of a region as one block; nothing when it is absent or cannot be read. For regions of bounded size. */
    std::optional<std::vector<uint8_t>> Copy(Region region);

    /** Passes a region to `visit` piece by piece, in order: each piece after the first begins with the last `overlap`
     * bytes of the one before. A piece is longer than `overlap` and is valid during the call. `visit` gets the piece
     * and its file offset and returns whether to go on. Returns false when a read failed. */
    using Visitor = std::function<bool(std::span<const uint8_t> piece, uint64_t offset)>;
    bool ForPieces(Region region, std::size_t overlap, const Visitor &visit);

private:
    static constexpr std::size_t kPageSize = 16 * 1024;
    static constexpr std::size_t kPages = 16;

    struct Page {
        uint64_t number = UINT64_MAX;
        std::size_t length = 0;
        std::unique_ptr<uint8_t[]> bytes;
    };

    const Page &PageAt(uint64_t number);

    ByteSource &source_;
    std::span<const uint8_t> memory_; // all bytes, when they are in memory
    uint64_t size_;
    std::array<Page, kPages> pages_;
};

} // namespace tavrik::base

#endif
