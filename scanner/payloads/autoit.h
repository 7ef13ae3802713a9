/* The archive of records that a compiled AutoIt script consists of, in the generations EA05 and EA06: a marker of 16
 * bytes, a tag ("AU3!EA06"), 16 bytes of a checksum, records, and the tag again. Every field of a record is combined
 * with a constant or a stream of bytes of the generation. Found out from files of both generations. */
#ifndef TAVRIK_SCANNER_PAYLOADS_AUTOIT_H
#define TAVRIK_SCANNER_PAYLOADS_AUTOIT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/byte_source.h"
#include "base/file_bytes.h"
#include "scanner/payloads/autoit_keystream.h"

namespace tavrik::scanner::payloads {

/** The constants of a generation. */
struct AutoItGeneration {
    std::string_view tag; // the end of the tags, and what compressed data begin with
    Keystream::Kind keystream;
    bool has_wide_texts; // UTF-16; otherwise Windows-1252
    bool is_literal_set; // in compressed data, the bit in front of a literal byte
    bool is_data_seeded; // the sum of the checksum's bytes is added to the seed of the data
    uint32_t magic;      // "FILE" in front of each record, encrypted
    uint32_t kind_mask;  // of the length of the kind, in characters
    uint32_t kind_seed;  // added to that length
    uint32_t path_mask;
    uint32_t path_seed;
    uint32_t size_mask;
    uint32_t checksum_mask;
    uint32_t data_seed;
};

/** A file in the archive. */
struct AutoItRecord {
    std::string kind; // ">>>AUTOIT SCRIPT<<<", or what the script calls an embedded file
    std::string path; // where the compiler found it
    bool is_compressed = false;
    uint32_t packed_size = 0;
    uint32_t size = 0;           // unpacked
    uint32_t checksum = 0;       // Adler-32 of the packed data
    std::optional<int64_t> time; // of the last change, in seconds since 1970 UTC
    uint64_t offset = 0;         // of the data, in the source
};

/** Goes over the records of an archive. The source must outlive the object. */
class AutoItArchive {
public:
    enum class End : uint8_t { None, Tag, Truncated, Unknown };

    static constexpr std::size_t kMostRecords = 65536;
    static constexpr uint32_t kLongestText = 4096; // characters

    /** An archive that begins, with its marker, at `offset`. */
    AutoItArchive(base::ByteSource &source, uint64_t offset);

    /** By the first record; null when that is unknown or not there. */
    const AutoItGeneration *generation() const { return generation_; }

    /** The next record; nothing at the end. */
    std::optional<AutoItRecord> Next();

    /** How the records ended, after Next gave nothing. */
    End end() const { return end_; }

    /** The end of the last record, in the source; of the tag after it when there is one. */
    uint64_t position() const { return position_; }

    /** The seed of the stream that the data of each record are combined with. */
    uint32_t data_seed() const { return data_seed_; }

private:
    bool IsTagAt(uint64_t offset);
    std::optional<std::string> TakeText(uint32_t mask, uint32_t seed);
    std::optional<AutoItRecord> TakeRecord();

    base::FileBytes bytes_;
    uint64_t begin_;
    const AutoItGeneration *generation_ = nullptr;
    uint32_t data_seed_ = 0;
    uint64_t position_;
    std::size_t count_ = 0;
    End end_ = End::None;
};

/** Whether the record is the script, not a file that it installs. */
bool IsScript(const AutoItRecord &record);

} // namespace tavrik::scanner::payloads

#endif
