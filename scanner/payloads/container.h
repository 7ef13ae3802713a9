/* What is inside a payload or an archive, one member after the other. */
#ifndef TAVRIK_SCANNER_PAYLOADS_CONTAINER_H
#define TAVRIK_SCANNER_PAYLOADS_CONTAINER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/byte_source.h"
#include "scanner/payloads/extent.h"

namespace tavrik::scanner::payloads {

/** A file inside a container. */
struct Member {
    std::string path;                    // UTF-8, as the container names it, not made safe; '/' or '\\' separates
    std::optional<uint64_t> size;        // in bytes, unpacked; nothing when only unpacking tells
    std::optional<uint64_t> packed_size; // in bytes; nothing when it shares a solid stream or is not known
    std::optional<int64_t> time;         // of the last change, in seconds since 1970 UTC
    bool encrypted = false;
    bool is_folder = false;
};

/** Reads the members of one container in its own order. The source must outlive the object. One thread at a time. */
class Container {
public:
    virtual ~Container() = default;

    /** The next member, after skipping what is left of the one before; nothing at the end or after an error. */
    virtual std::optional<Member> Next() = 0;

    /** Reads up to `length` bytes of the member that Next gave last. Returns how many were read: 0 at its end and after
     * a failure, of this member or of the whole container. */
    virtual std::size_t Read(void *buffer, std::size_t length) = 0;

    /** Why the member that Next gave last could not be read to its end, with a remedy; "" while it can. The members
     * after it may still be readable. */
    virtual const std::string &member_error() const = 0;

    /** Why Next ended early or the container cannot be read at all, with a remedy ("7z x opens it"); "" when the end
     * was reached in order. */
    virtual const std::string &error() const = 0;

    /** Whether error() is that a password is needed. */
    virtual bool needs_password() const { return false; }
};

/** The contents of a payload of our own formats or, for cabinets and RAR, through the archive library. Never null: what
 * cannot be opened gives a container without members whose error() says why. */
std::unique_ptr<Container> OpenPayload(base::ByteSource &source, const Extent &extent);

/** The same for a source that is a whole archive (zip, 7z, tar, gzip, iso, cab, rar, ...); null when it is none. */
std::unique_ptr<Container> OpenArchive(base::ByteSource &source);

} // namespace tavrik::scanner::payloads

#endif
