/* The archive of a Nullsoft installer: a first header of 28 bytes (flags, a marker, the lengths of the script and of
 * the whole archive), the script, the files, a CRC-32. Solid archives are one compressed stream; in others the script
 * and each file are blocks of their own. The fields are those of the installer's own sources (fileform.h). */
#ifndef TAVRIK_SCANNER_PAYLOADS_NSIS_H
#define TAVRIK_SCANNER_PAYLOADS_NSIS_H

#include <cstdint>
#include <optional>

#include "base/byte_source.h"

namespace tavrik::scanner::payloads {

/** How blocks are compressed. */
enum class NsisMethod : uint8_t { Stored, Deflate, Lzma, Bzip2 };

/** Where the parts of an archive are, and how to read them. */
struct NsisArchive {
    uint64_t begin = 0;       // of the flags, in the source
    uint64_t length = 0;      // of all of it, as it says
    uint64_t data = 0;        // of the first block or of the solid stream, in the source
    uint64_t data_end = 0;    // of what the source has of them
    uint32_t script_size = 0; // unpacked
    NsisMethod method = NsisMethod::Deflate;
    bool is_solid = false;
    bool has_filter = false; // LZMA after a filter for x86 code
};

/** The largest script that is read, in bytes. Those of large installers have about 2 MB. */
inline constexpr uint32_t kLargestNsisScript = 16u << 20;

/** The archive whose flags are at `offset`; nothing when there is none. */
std::optional<NsisArchive> ReadNsisArchive(base::ByteSource &source, uint64_t offset);

} // namespace tavrik::scanner::payloads

#endif
