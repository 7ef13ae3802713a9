#include "scanner/payloads/nsis.h"

#include <array>
#include <cstring>

#include "base/file_bytes.h"
#include "scanner/payloads/nsis_script.h"
#include "scanner/payloads/readers.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr std::array<uint8_t, 16> kFirstHeaderMarker = {0xEF, 0xBE, 0xAD, 0xDE, 'N', 'u', 'l', 'l',
                                                        's',  'o',  'f',  't',  'I', 'n', 's', 't'};

// Offsets in the first header.
constexpr uint32_t kMarkerOffset = 4;
constexpr uint32_t kScriptSize = 20;
constexpr uint32_t kArchiveLength = 24;
constexpr uint32_t kFirstHeaderLength = 28;

constexpr uint32_t kNoCrc = 4; // flags
constexpr uint32_t kForceCrc = 8;
constexpr uint32_t kKnownFlags = 0xFF; // derived builds have a few more than the four of the original
constexpr uint32_t kCrcLength = 4;

// What the start of a compressed block shows.
struct Signature {
    NsisMethod method;
    bool has_filter_byte;
};

// LZMA begins with its properties, usually after a byte that tells whether a filter was used; bzip2 with '1' and the
// upper byte of a number below 900,000. Deflate begins with anything.
Signature SignatureOf(std::span<const uint8_t, 8> bytes) {
    constexpr uint8_t kUsualProperties = 0x5D;
    constexpr uint8_t kBzip2Begin = 0x31;
    constexpr uint8_t kBzip2Below = 14;
    for (const std::size_t place : {0u, 1u})
        if (bytes[place] == kUsualProperties && bytes[place + 1] == 0 && bytes[place + 2] == 0 &&
            bytes[place + 5] == 0 && (place == 0 || bytes[0] <= 1))
            return {NsisMethod::Lzma, place == 1};
    if (bytes[0] == kBzip2Begin && bytes[1] < kBzip2Below)
        return {NsisMethod::Bzip2, false};
    return {NsisMethod::Deflate, false};
}

} // namespace

std::optional<NsisArchive> ReadNsisArchive(base::ByteSource &source, uint64_t offset) {
    base::FileBytes bytes(source);
    std::array<uint8_t, kFirstHeaderMarker.size()> marker;
    if (!bytes.Read(offset + kMarkerOffset, marker.data(), marker.size()) || marker != kFirstHeaderMarker)
        return std::nullopt;
    const std::optional<uint32_t> flags = bytes.Get<uint32_t>(offset);
    const std::optional<uint32_t> script_size = bytes.Get<uint32_t>(offset + kScriptSize);
    const std::optional<uint32_t> length = bytes.Get<uint32_t>(offset + kArchiveLength);
    if (!length || (*flags & ~kKnownFlags) != 0 || *script_size == 0 || *script_size > kLargestNsisScript)
        return std::nullopt;
    const bool has_crc = (*flags & kForceCrc) != 0 || (*flags & kNoCrc) == 0;
    const uint32_t frame = kFirstHeaderLength + kNsisBlockHead + (has_crc ? kCrcLength : 0);
    if (*length <= frame)
        return std::nullopt;
    NsisArchive archive;
    archive.begin = offset;
    archive.length = *length;
    archive.data = offset + kFirstHeaderLength;
    archive.data_end = std::min(source.size(), offset + *length - (has_crc ? kCrcLength : 0));
    archive.script_size = *script_size;

    std::array<uint8_t, 12> start = {};
    source.ReadAt(archive.data, start.data(), start.size());
    uint32_t first;
    std::memcpy(&first, start.data(), sizeof(first));
    const std::span<const uint8_t, 12> view(start);
    const Signature solid = SignatureOf(view.first<8>());
    // By chance a solid stream can look like a block's length; a block has to fit into the archive.
    const bool fits = (first & ~kNsisIsCompressed) <= *length - frame;
    if (first == *script_size && fits) {
        archive.method = NsisMethod::Stored;
    } else if (solid.method == NsisMethod::Deflate && (first & kNsisIsCompressed) != 0 && fits) {
        const Signature block = SignatureOf(view.last<8>());
        archive.method = block.method;
        archive.has_filter_byte = block.has_filter_byte;
    } else {
        archive.is_solid = true;
        archive.method = solid.method;
        archive.has_filter_byte = solid.has_filter_byte;
    }
    return archive;
}

std::optional<Extent> ReadNsisExtent(base::ByteSource &source, uint64_t offset) {
    std::optional<NsisArchive> archive = ReadNsisArchive(source, offset);
    if (!archive)
        return std::nullopt;
    const OpenedNsisScript opened = OpenNsisScript(source, *archive);
    const std::optional<NsisScript> script = ParseNsisScript(opened.bytes);
    constexpr const char *kNames[] = {"not compressed", "zlib", "LZMA", "bzip2"};
    std::string description = script ? script->version : "NSIS";
    description += std::string(", ") + kNames[static_cast<std::size_t>(archive->method)];
    if (archive->is_solid)
        description += " solid";
    return MakeExtent(source, Format::Nsis, std::move(description), offset, archive->length);
}

} // namespace tavrik::scanner::payloads
