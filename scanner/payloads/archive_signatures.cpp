#include "scanner/payloads/archive_signatures.h"

#include <cstring>

namespace tavrik::scanner::payloads {

namespace {

using namespace std::string_view_literals;

// Offsets in bytes. The signatures are long enough that other files hardly ever begin like this.
constexpr ArchiveSignature kSignatures[] = {
    {ArchiveKind::Zip, 0, "PK\3\4"sv, "zip archive"},
    {ArchiveKind::Zip, 0, "PK\5\6"sv, "zip archive"}, // without members
    {ArchiveKind::SevenZip, 0, "7z\xBC\xAF\x27\x1C"sv, "7z archive"},
    {ArchiveKind::Rar, 0, "Rar!\x1A\7"sv, "RAR archive"},
    {ArchiveKind::Cabinet, 0, "MSCF\0\0\0\0"sv, "cabinet"},
    {ArchiveKind::Filtered, 0, "\x1F\x8B\x08"sv, "gzip stream"},
    {ArchiveKind::Filtered, 0,
     "\xFD"
     "7zXZ\0"sv,
     "xz stream"},
    {ArchiveKind::Filtered, 4, "1AY&SY"sv, "bzip2 stream"}, // after "BZh" and a digit
    {ArchiveKind::Filtered, 0, "\x28\xB5\x2F\xFD"sv, "zstd stream"},
    {ArchiveKind::Filtered, 0, "\x04\x22\x4D\x18"sv, "lz4 stream"},
    {ArchiveKind::Filtered, 0, "LZIP\1"sv, "lzip stream"},
    {ArchiveKind::Rpm, 0, "\xED\xAB\xEE\xDB"sv, "RPM package"},
    {ArchiveKind::Tar, 257, "ustar"sv, "tar archive"},
    {ArchiveKind::Cpio, 0, "070701"sv, "cpio archive"},
    {ArchiveKind::Cpio, 0, "070702"sv, "cpio archive"},
    {ArchiveKind::Cpio, 0, "070707"sv, "cpio archive"},
    {ArchiveKind::Ar, 0, "!<arch>\ndebian-binary"sv, "Debian package"}, // not the archives of a linker
    {ArchiveKind::Xar, 0, "xar!\0"sv, "xar archive"},
    {ArchiveKind::Lha, 2, "-lh0-"sv, "LHA archive"},
    {ArchiveKind::Lha, 2, "-lh1-"sv, "LHA archive"},
    {ArchiveKind::Lha, 2, "-lh5-"sv, "LHA archive"},
    {ArchiveKind::Lha, 2, "-lh6-"sv, "LHA archive"},
    {ArchiveKind::Lha, 2, "-lh7-"sv, "LHA archive"},
};
constexpr std::size_t kHeadSize = 512; // holds all of them

// The volume descriptors of ISO 9660 follow 16 sectors that belong to no format, so their place has to be read.
constexpr ArchiveSignature kIso = {ArchiveKind::Iso, 16 * 2048 + 1, "CD001"sv, "ISO 9660 image"};
constexpr uint64_t kSectorSize = 2048;

} // namespace

const ArchiveSignature *SignatureOf(base::ByteSource &source) {
    char head[kHeadSize];
    const std::string_view bytes(head, source.ReadAt(0, head, sizeof head));
    for (const ArchiveSignature &signature : kSignatures)
        if (bytes.size() > signature.offset && bytes.substr(signature.offset).starts_with(signature.bytes))
            return &signature;
    // Images are whole sectors, which other files seldom are: those are spared the read.
    if (source.size() <= kIso.offset || source.size() % kSectorSize != 0)
        return nullptr;
    char descriptor[8];
    const std::size_t count = source.ReadAt(kIso.offset, descriptor, kIso.bytes.size());
    return std::string_view(descriptor, count) == kIso.bytes ? &kIso : nullptr;
}

} // namespace tavrik::scanner::payloads
