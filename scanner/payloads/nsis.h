/* The archive of a Nullsoft installer: a first header of 28 bytes (flags, a marker, the lengths of the script and of
 * the whole archive), the script, the files, a CRC-32. Solid archives are one compressed stream; in others the script
 * and each file are blocks of their own. The fields are those of the installer's own sources (fileform.h). */
#ifndef TAVRIK_SCANNER_PAYLOADS_NSIS_H
#define TAVRIK_SCANNER_PAYLOADS_NSIS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "scanner/payloads/decoder.h"

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
    bool has_filter_byte = false; // in front of the properties of LZMA
};

/** The largest script that is read, in bytes. Those of large installers have about 2 MB. */
inline constexpr uint32_t kLargestNsisScript = 16u << 20;

/** In front of each block are its length and, unless the archive is solid, in the highest bit whether it is compressed.
 */
inline constexpr uint32_t kNsisBlockHead = 4; // bytes
inline constexpr uint32_t kNsisIsCompressed = 0x80000000;

/** The archive whose flags are at `offset`; nothing when there is none. How it is compressed is what its first bytes
 * say, which by chance can be wrong: OpenNsisScript makes sure. */
std::optional<NsisArchive> ReadNsisArchive(base::ByteSource &source, uint64_t offset);

/** Gives the blocks of an archive: the script, then the files. A solid stream goes forward only; going back begins it
 * again, a limited number of times. The source must outlive the object. */
class NsisBlocks {
public:
    static constexpr int kMostRestarts = 8;

    NsisBlocks(base::ByteSource &source, const NsisArchive &archive) : source_(source), archive_(archive) {}

    /** The whole script; nothing with an error. Comes first: offsets count from its end. */
    std::optional<std::vector<uint8_t>> ReadScript();

    /** Opens the block at `offset` from the end of the script, or the one after the block that was opened last. Returns
     * false with an error. */
    bool Open(uint64_t offset) { return OpenAt(files_ + offset); }
    bool OpenNext() { return OpenAt(next_); }

    /** Of the open block, where its head says them. */
    std::optional<uint64_t> size() const { return size_; }
    std::optional<uint64_t> packed_size() const { return packed_size_; }

    /** Reads up to `length` bytes of the open block; 0 at its end and after a failure. */
    std::size_t Read(void *buffer, std::size_t length);

    /** Why the last block could not be opened or read to its end, with a remedy; "" when it could. */
    const std::string &error() const { return error_; }

private:
    bool OpenAt(uint64_t position);
    bool OpenBlock(uint64_t position);
    bool OpenInStream(uint64_t position);
    std::unique_ptr<Decoder> MakeDecoder(uint64_t begin, uint64_t end);

    base::ByteSource &source_;
    NsisArchive archive_;
    std::unique_ptr<Decoder> decoder_; // of the open block or of the solid stream
    uint64_t position_ = 0;            // in the solid stream, of what is read next
    uint64_t files_ = 0;               // where the first block after the script is
    uint64_t next_ = 0;                // where the block after the open one is
    uint64_t left_ = 0;                // of the open block, in a solid stream
    int restarts_ = 0;
    std::optional<uint64_t> size_;
    std::optional<uint64_t> packed_size_;
    std::string error_;
};

/** The script of an archive, unpacked, and the blocks after it. */
struct OpenedNsisScript {
    std::unique_ptr<NsisBlocks> blocks;
    std::vector<uint8_t> bytes; // none when it cannot be read: the error of `blocks` says why
};

/** Reads the script; corrects in `archive` how it is compressed. */
OpenedNsisScript OpenNsisScript(base::ByteSource &source, NsisArchive &archive);

} // namespace tavrik::scanner::payloads

#endif
