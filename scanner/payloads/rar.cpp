// RAR archives: a signature and a chain of blocks, each of which says how long it is. The formats are described in
// technote.txt, which comes with the archiver, for both generations.

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include "base/crc32.h"
#include "base/file_bytes.h"
#include "scanner/payloads/readers.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr std::array<uint8_t, 7> kSignature4 = {'R', 'a', 'r', '!', 0x1A, 7, 0};
constexpr std::array<uint8_t, 8> kSignature5 = {'R', 'a', 'r', '!', 0x1A, 7, 1, 0};
constexpr std::size_t kMostBlocks = 1u << 20;
constexpr uint64_t kEndBlockLength = 7; // at least

/** What a walk over the blocks finds out. */
struct Walk {
    uint64_t end = 0; // of the last block, in the source; beyond its end when the archive is truncated
    bool has_encrypted_headers = false;
    std::vector<bool> encrypted_files; // whether each file is, in the order of the archive
    bool wants_end_block = false;      // the version that wrote the archive ends it with such a block
    bool has_end_block = false;
};

namespace rar4 {

// Types of blocks.
constexpr uint8_t kMain = 0x73;
constexpr uint8_t kFile = 0x74;
constexpr uint8_t kService = 0x7A;
constexpr uint8_t kEnd = 0x7B;
constexpr uint8_t kLowestType = 0x72;

constexpr uint16_t kHasData = 0x8000; // of any block
constexpr uint16_t kMainEncrypted = 0x80;
constexpr uint16_t kFileEncrypted = 0x04;
constexpr uint16_t kFileIsLarge = 0x100;

// Offsets in a block.
constexpr uint32_t kType = 2;
constexpr uint32_t kFlags = 3;
constexpr uint32_t kHeadSize = 5;
constexpr uint32_t kDataSize = 7;
constexpr uint32_t kUnpackVersion = 24;
constexpr uint32_t kHighDataSize = 32;
constexpr uint8_t kVersion3 = 29; // since then archives have an end block
constexpr uint16_t kShortestBlock = 7;
constexpr uint16_t kShortestMain = 13;

struct Block {
    uint8_t type;
    uint16_t flags;
    uint64_t length; // header and data
    bool is_of_version3 = false;
};

std::optional<Block> ReadBlock(base::FileBytes &bytes, uint64_t offset) {
    const std::optional<uint16_t> head_size = bytes.Get<uint16_t>(offset + kHeadSize);
    if (!head_size || *head_size < kShortestBlock)
        return std::nullopt;
    Block block = {*bytes.Get<uint8_t>(offset + kType), *bytes.Get<uint16_t>(offset + kFlags), *head_size};
    if (block.type < kLowestType || block.type > kEnd)
        return std::nullopt;
    const bool is_file = block.type == kFile || block.type == kService;
    block.is_of_version3 = is_file && bytes.Get<uint8_t>(offset + kUnpackVersion).value_or(0) >= kVersion3;
    if ((block.flags & kHasData) != 0 || is_file) {
        block.length += bytes.Get<uint32_t>(offset + kDataSize).value_or(0);
        if (is_file && (block.flags & kFileIsLarge) != 0)
            block.length += uint64_t{bytes.Get<uint32_t>(offset + kHighDataSize).value_or(0)} << 32;
    }
    return block;
}

// From the end of the signature.
std::optional<Walk> WalkBlocks(base::FileBytes &bytes, uint64_t offset) {
    Walk walk;
    walk.end = offset;
    walk.wants_end_block = true; // unless a file is of an old version
    for (std::size_t count = 0; count < kMostBlocks; ++count) {
        const std::optional<Block> block = ReadBlock(bytes, walk.end);
        if (count == 0 && (!block || block->type != kMain || block->length < kShortestMain))
            return std::nullopt;
        if (!block || block->length > kLongestPayload)
            break; // an archive without an end block, as old versions write them
        walk.end += block->length;
        if (count == 0 && (block->flags & kMainEncrypted) != 0) {
            walk.has_encrypted_headers = true;
            break;
        }
        if (block->type == kFile) {
            walk.encrypted_files.push_back((block->flags & kFileEncrypted) != 0);
            walk.wants_end_block = block->is_of_version3;
        }
        walk.has_end_block = block->type == kEnd;
        if (walk.has_end_block || walk.end >= bytes.size())
            break;
    }
    return walk;
}

} // namespace rar4

namespace rar5 {

// Types of blocks.
constexpr uint64_t kMain = 1;
constexpr uint64_t kFile = 2;
constexpr uint64_t kEncryption = 4;
constexpr uint64_t kEnd = 5;

constexpr uint64_t kHasExtra = 1; // of any block
constexpr uint64_t kHasData = 2;
constexpr uint64_t kExtraEncryption = 1; // a record in the extra area of a file

constexpr uint64_t kLongestHeader = 2 * 1024 * 1024; // by the format's description
constexpr uint32_t kCrcLength = 4;
constexpr int kLongestNumber = 10; // bytes

/** Numbers of 7 bits a byte, the lowest first, in the bytes of one header. */
class Numbers {
public:
    Numbers(base::FileBytes &bytes, uint64_t offset) : bytes_(bytes), offset_(offset) {}

    uint64_t offset() const { return offset_; }
    bool failed() const { return failed_; }
    bool ran_out() const { return ran_out_; } // failed since the source ends

    uint64_t Next() {
        uint64_t value = 0;
        for (int i = 0; i < kLongestNumber && !failed_; ++i) {
            const std::optional<uint8_t> byte = bytes_.Get<uint8_t>(offset_);
            ran_out_ = !byte.has_value();
            if (ran_out_)
                break;
            ++offset_;
            value |= uint64_t{*byte & 0x7Fu} << 7 * i;
            if ((*byte & 0x80) == 0)
                return value;
        }
        failed_ = true;
        return 0;
    }

private:
    base::FileBytes &bytes_;
    uint64_t offset_;
    bool failed_ = false;
    bool ran_out_ = false;
};

struct Block {
    uint64_t type;
    uint64_t length; // header and data
    bool is_encrypted;
};

// Whether one of the records from `offset` to `end` says that the file is encrypted.
bool HasEncryptionRecord(base::FileBytes &bytes, uint64_t offset, uint64_t end) {
    while (offset < end) {
        Numbers numbers(bytes, offset);
        const uint64_t size = numbers.Next();
        const uint64_t after = numbers.offset() + size;
        if (size == 0 || size > end - offset)
            return false;
        if (numbers.Next() == kExtraEncryption && !numbers.failed())
            return true;
        offset = after;
    }
    return false;
}

std::optional<Block> ReadBlock(base::FileBytes &bytes, uint64_t offset) {
    Numbers numbers(bytes, offset + kCrcLength);
    const uint64_t header_size = numbers.Next();
    const uint64_t header = numbers.offset();
    const uint64_t type = numbers.Next();
    const uint64_t flags = numbers.Next();
    const uint64_t extra_size = (flags & kHasExtra) != 0 ? numbers.Next() : 0;
    const uint64_t data_size = (flags & kHasData) != 0 ? numbers.Next() : 0;
    if (numbers.ran_out())
        return Block{0, bytes.size() - offset + 1, false}; // it ends somewhere after the source
    if (numbers.failed() || header_size == 0 || header_size > kLongestHeader || type == 0 || type > kEnd ||
        extra_size > header_size || data_size > kLongestPayload)
        return std::nullopt;
    const uint64_t end = header + header_size;
    const bool is_encrypted = type == kFile && HasEncryptionRecord(bytes, end - extra_size, end);
    return Block{type, end - offset + data_size, is_encrypted};
}

// Whether the checksum of the header at `offset` is right.
bool IsHeaderIntact(base::FileBytes &bytes, uint64_t offset) {
    const std::optional<uint32_t> crc = bytes.Get<uint32_t>(offset);
    Numbers numbers(bytes, offset + kCrcLength);
    const uint64_t size = numbers.Next();
    if (!crc || numbers.failed() || size > kLongestHeader)
        return false;
    const uint64_t start = offset + kCrcLength;
    const auto header = bytes.Copy({start, numbers.offset() + size - start});
    return header && base::Crc32(*header) == *crc;
}

// From the end of the signature.
std::optional<Walk> WalkBlocks(base::FileBytes &bytes, uint64_t offset) {
    Walk walk;
    walk.end = offset;
    walk.wants_end_block = true;
    for (std::size_t count = 0; count < kMostBlocks; ++count) {
        const std::optional<Block> block = ReadBlock(bytes, walk.end);
        if (count == 0 &&
            (!block || (block->type != kMain && block->type != kEncryption) || !IsHeaderIntact(bytes, offset)))
            return std::nullopt;
        if (!block)
            break;
        walk.end += block->length;
        walk.has_encrypted_headers |= block->type == kEncryption;
        if (block->type == kFile)
            walk.encrypted_files.push_back(block->is_encrypted);
        walk.has_end_block = block->type == kEnd;
        if (walk.has_end_block || block->type == kEncryption || walk.end >= bytes.size())
            break;
    }
    return walk;
}

} // namespace rar5

template <std::size_t Length>
bool BeginsWith(base::FileBytes &bytes, uint64_t offset, const std::array<uint8_t, Length> &signature) {
    std::array<uint8_t, Length> begin;
    return bytes.Read(offset, begin.data(), Length) && begin == signature;
}

// Of an archive of either generation, and which it is in words; nothing when there is none.
std::optional<Walk> WalkArchive(base::FileBytes &bytes, uint64_t offset, std::string &description) {
    if (BeginsWith(bytes, offset, kSignature4)) {
        description = "RAR 4";
        return rar4::WalkBlocks(bytes, offset + kSignature4.size());
    }
    if (BeginsWith(bytes, offset, kSignature5)) {
        description = "RAR 5";
        return rar5::WalkBlocks(bytes, offset + kSignature5.size());
    }
    return std::nullopt;
}

} // namespace

std::optional<Extent> ReadRarExtent(base::ByteSource &source, uint64_t offset) {
    base::FileBytes bytes(source);
    std::string description;
    std::optional<Walk> walk = WalkArchive(bytes, offset, description);
    if (!walk)
        return std::nullopt;
    if (walk->has_encrypted_headers) {
        walk->end = bytes.size();
        description += ", encrypted headers";
    } else if (walk->wants_end_block && !walk->has_end_block && walk->end + kEndBlockLength > bytes.size()) {
        walk->end = std::max(walk->end, bytes.size()) + kEndBlockLength; // the source ends first
    }
    Extent extent = MakeExtent(source, Format::Rar, std::move(description), offset, walk->end - offset);
    extent.encrypted =
        walk->has_encrypted_headers || std::ranges::find(walk->encrypted_files, true) != walk->encrypted_files.end();
    return extent;
}

RarEncryption EncryptionOfRar(base::ByteSource &source, uint64_t offset) {
    base::FileBytes bytes(source);
    std::string description;
    std::optional<Walk> walk = WalkArchive(bytes, offset, description);
    if (!walk)
        return {};
    return {walk->has_encrypted_headers, std::move(walk->encrypted_files)};
}

} // namespace tavrik::scanner::payloads
