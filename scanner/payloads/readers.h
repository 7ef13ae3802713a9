/* The readers of the single formats, which ReadExtent calls. */
#ifndef TAVRIK_SCANNER_PAYLOADS_READERS_H
#define TAVRIK_SCANNER_PAYLOADS_READERS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/byte_source.h"
#include "scanner/payloads/extent.h"

namespace tavrik::scanner::payloads {

/** Longer payloads than this (in bytes) are those of damaged headers; it keeps sums of offsets and lengths within 64
 * bits. */
inline constexpr uint64_t kLongestPayload = uint64_t{1} << 48;

/** The extent of `length` bytes at `offset`, as much of it present as the source has. */
inline Extent MakeExtent(const base::ByteSource &source, Format format, std::string description, uint64_t offset,
                         uint64_t length) {
    const uint64_t rest = source.size() > offset ? source.size() - offset : 0;
    const uint64_t present = std::min(length, rest);
    return {format, std::move(description), offset, length, present, present == length, false};
}

/** The most bytes that MayBeAutoIt needs. */
inline constexpr std::size_t kLongestHead = 64;

/** Whether a compiled AutoIt script can begin with these bytes; quick. */
bool MayBeAutoIt(std::span<const uint8_t> head);

/** The cabinet whose first byte is at `offset`; nothing when there is none. So for the other formats. */
std::optional<Extent> ReadCabinetExtent(base::ByteSource &source, uint64_t offset);
std::optional<Extent> ReadRarExtent(base::ByteSource &source, uint64_t offset);
std::optional<Extent> ReadAutoItExtent(base::ByteSource &source, uint64_t offset);
std::optional<Extent> ReadNsisExtent(base::ByteSource &source, uint64_t offset);

/** What of a RAR archive needs a password. */
struct RarEncryption {
    bool headers = false;         // nothing is known of the files then
    std::vector<bool> files = {}; // of each, folders and links included, in the order of the archive

    bool operator==(const RarEncryption &) const = default;
};

/** That of the archive at `offset`; of none, nothing needs one. */
RarEncryption EncryptionOfRar(base::ByteSource &source, uint64_t offset);

} // namespace tavrik::scanner::payloads

#endif
