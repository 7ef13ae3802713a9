/* What has to hold for a payload of any bytes. */
#ifndef TAVRIK_FUZZ_PAYLOAD_CHECK_H
#define TAVRIK_FUZZ_PAYLOAD_CHECK_H

#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "scanner/payloads/container.h"
#include "scanner/payloads/extent.h"

namespace tavrik::fuzz {

inline void Require(bool holds) {
    if (!holds)
        std::abort();
}

/** The extent at the start of the bytes, the same from a source that is not in memory. */
inline std::optional<scanner::payloads::Extent> CheckExtent(base::ByteSource &source,
                                                            scanner::payloads::Format format) {
    using namespace scanner::payloads;
    const std::optional<Extent> extent = ReadExtent(source, format, 0);
    if (!extent)
        return extent;
    Require(extent->format == format && extent->offset == 0 && extent->length > 0 && extent->present > 0 &&
            !extent->description.empty());
    Require(extent->present <= source.size() && extent->present <= extent->length);
    Require(extent->complete == (extent->present == extent->length));
    // The bytes may be several payloads at once, of which one is given.
    const std::optional<Extent> first = ReadExtentAt(source, 0);
    Require(first && (first->format != format || first == extent));
    return extent;
}

/** Reads the members, a bounded number of them and a bounded part of each. `is_own`: what can be read without an
 * error has the size that its member says, and each has a name; archives of other makers may name nothing. */
inline void CheckMembers(scanner::payloads::Container &container, bool is_own) {
    constexpr std::size_t kMostMembers = 32;
    constexpr uint64_t kMostBytes = 256 * 1024;
    std::vector<uint8_t> piece(10000);
    for (std::size_t count = 0; count < kMostMembers; ++count) {
        const std::optional<scanner::payloads::Member> member = container.Next();
        if (!member)
            return;
        Require((!is_own || !member->path.empty()) && member->path.find('\0') == std::string::npos);
        uint64_t length = 0;
        std::size_t read = 1;
        while (read != 0 && length < kMostBytes) {
            read = container.Read(piece.data(), piece.size());
            Require(read <= piece.size());
            length += read;
        }
        if (read == 0)
            Require(container.Read(piece.data(), piece.size()) == 0);
        if (read == 0 && container.member_error().empty() && is_own)
            Require(member->size.value_or(length) == length);
    }
}

/** The same for a payload. */
inline void CheckContents(base::ByteSource &source, const scanner::payloads::Extent &extent) {
    const auto container = scanner::payloads::OpenPayload(source, extent);
    Require(container != nullptr);
    CheckMembers(*container, extent.format == scanner::payloads::Format::Nsis);
}

} // namespace tavrik::fuzz

#endif
