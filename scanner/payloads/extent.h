/* Where a payload begins and ends, by its own structure. */
#ifndef TAVRIK_SCANNER_PAYLOADS_EXTENT_H
#define TAVRIK_SCANNER_PAYLOADS_EXTENT_H

#include <cstdint>
#include <optional>
#include <string>

#include "base/byte_source.h"

namespace tavrik::scanner::payloads {

/** The formats of payloads that are read here. */
enum class Format : uint8_t { Nsis, AutoIt, Cabinet, Rar };

/** The extension of a file that contains one such payload: "nsis", "a3x", "cab" or "rar". */
const char *ExtensionOf(Format format);

/** The format of what a locator found, from the PayloadKind in its result; nothing for any other number. */
std::optional<Format> FormatOf(uint32_t kind);

/** A payload's bounds. Where a format leaves the end open (RAR archives with encrypted headers, or without an end
 * block), the payload ends where its last block does or, with encrypted headers, where the source does. */
struct Extent {
    Format format;
    std::string description; // format and version in words, "NSIS 3 Unicode, LZMA solid"
    uint64_t offset = 0;     // in the source, of the payload's first byte
    uint64_t length = 0;     // in bytes, by the payload's own structure; of a truncated one as far as that says
    uint64_t present = 0;    // how many of them the source has
    bool complete = false;   // the structure ends within the source (present == length)
    bool encrypted = false;  // contents or headers need a password

    bool operator==(const Extent &) const = default;
};

/** The payload of one format whose marker, as a locator reports it, is at `offset`; nothing when the bytes there are
 * not such a payload. `offset` may be the payload's first byte or, for formats whose marker is further on, the
 * marker's. Reads a bounded number of bytes and takes time linear in what it reads; never throws for what the bytes
 * say. */
std::optional<Extent> ReadExtent(base::ByteSource &source, Format format, uint64_t offset);

/** The payload of any format that begins exactly at `offset` (its first byte), for searches without a locator. */
std::optional<Extent> ReadExtentAt(base::ByteSource &source, uint64_t offset);

} // namespace tavrik::scanner::payloads

#endif
