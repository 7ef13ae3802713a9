/* The payloads of a file, with their true bounds, out of what its locators found. */
#ifndef TAVRIK_SCANNER_PAYLOAD_H
#define TAVRIK_SCANNER_PAYLOAD_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "scanner/payloads/extent.h"

namespace tavrik::scanner {

/** A place that a locator found. */
struct Finding {
    uint32_t entry;  // of the locator table
    uint32_t kind;   // a PayloadKind
    uint32_t offset; // in the file
    uint32_t size;   // bytes that the locator reports at offset

    bool operator==(const Finding &) const = default;
};

/** A payload that was written to a file of its own. */
struct CarvedPayload {
    std::filesystem::path file;
    uint64_t length = 0; // in bytes
    std::string sha256;  // of these bytes, in hexadecimal digits
    bool is_new = false; // false: an earlier payload of the run had the same bytes, and this is its file
};

/** One payload, whatever number of entries found it. */
struct Payload {
    uint32_t kind = 0;                      // a PayloadKind
    uint64_t offset = 0;                    // in the file, of its first byte; of its marker without an extent
    std::optional<payloads::Extent> extent; // nothing when its structure could not be read
    std::string sha256;                     // of the bytes that are there; "" without an extent or above the bound
    std::vector<uint32_t> entries;          // of the locator table that found it, in the table's order
    std::optional<CarvedPayload> carved;    // added by the caller that carves
    std::string not_carved;                 // why it was not; ""

    /** How many of the bytes that its structure tells of are missing at the end of the file. */
    uint64_t missing() const { return extent ? extent->length - extent->present : 0; }
};

/** The most bytes of a file's payloads that are hashed; those of later payloads are not. */
inline constexpr uint64_t kMostHashed = uint64_t{2} << 30;

/** The payloads that `findings`, in the table's order, are about: one a place, in the order in which they were found
 * first. Without digests. */
std::vector<Payload> PayloadsOf(base::ByteSource &source, std::span<const Finding> findings);

/** Adds the digests of payloads with an extent, which are read to their ends. */
void HashPayloads(base::ByteSource &source, std::vector<Payload> &payloads);

} // namespace tavrik::scanner

#endif
