// Cabinets (MS-CAB): a header of 36 bytes says how long the cabinet is.

#include "base/file_bytes.h"
#include "scanner/payloads/readers.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr uint32_t kSignature = 0x4643534D; // "MSCF"
constexpr uint16_t kVersion = 0x0103;       // 1.3, the only one
constexpr uint32_t kHeaderLength = 36;
constexpr uint32_t kFileEntryLength = 17; // with an empty name
constexpr uint16_t kHasPrevious = 1;
constexpr uint16_t kHasNext = 2;
constexpr uint16_t kHasReserve = 4;

// Offsets in the header.
constexpr uint32_t kCabinetLength = 8;
constexpr uint32_t kFilesOffset = 16;
constexpr uint32_t kVersionNumber = 24;
constexpr uint32_t kFolderCount = 26;
constexpr uint32_t kFileCount = 28;
constexpr uint32_t kFlags = 30;
constexpr uint32_t kNumberInSet = 34;

} // namespace

std::optional<Extent> ReadCabinetExtent(base::ByteSource &source, uint64_t offset) {
    base::FileBytes bytes(source);
    if (bytes.Get<uint32_t>(offset) != kSignature || bytes.Get<uint16_t>(offset + kVersionNumber) != kVersion)
        return std::nullopt;
    const std::optional<uint16_t> number = bytes.Get<uint16_t>(offset + kNumberInSet);
    if (!number)
        return std::nullopt; // less than a header
    const uint64_t length = *bytes.Get<uint32_t>(offset + kCabinetLength);
    const uint64_t files = *bytes.Get<uint32_t>(offset + kFilesOffset);
    const uint32_t folder_count = *bytes.Get<uint16_t>(offset + kFolderCount);
    const uint32_t file_count = *bytes.Get<uint16_t>(offset + kFileCount);
    const uint16_t flags = *bytes.Get<uint16_t>(offset + kFlags);
    // The reserved fields may contain checksums. What counts is that the tables fit.
    if (folder_count == 0 || file_count == 0 || (flags & ~(kHasPrevious | kHasNext | kHasReserve)) != 0 ||
        files < kHeaderLength || files + uint64_t{file_count} * kFileEntryLength > length)
        return std::nullopt;
    std::string description = "cabinet";
    if ((flags & (kHasPrevious | kHasNext)) != 0)
        description += ", part " + std::to_string(*number + 1) + " of a set";
    return MakeExtent(source, Format::Cabinet, std::move(description), offset, length);
}

} // namespace tavrik::scanner::payloads
