/* By which bytes archives are recognised. */
#ifndef TAVRIK_SCANNER_PAYLOADS_ARCHIVE_SIGNATURES_H
#define TAVRIK_SCANNER_PAYLOADS_ARCHIVE_SIGNATURES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/byte_source.h"

namespace tavrik::scanner::payloads {

/** What reads an archive. Filtered: a compressed stream with any single file in it. */
enum class ArchiveKind : uint8_t {
    Zip,
    SevenZip,
    Rar,
    Cabinet,
    Filtered,
    FilteredTar,
    FilteredCpio,
    Rpm,
    Tar,
    Cpio,
    Ar,
    Xar,
    Lha,
    Iso
};

/** Bytes at an offset. */
struct ArchiveSignature {
    ArchiveKind kind;
    std::size_t offset;
    std::string_view bytes;
    std::string_view name; // of the kind, in words
};

/** The signature that a source has; null when it has none. Reads a few bytes from its beginning. */
const ArchiveSignature *SignatureOf(base::ByteSource &source);

} // namespace tavrik::scanner::payloads

#endif
