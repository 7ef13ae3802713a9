#include "tavrik2/pe/section_table.h"

#include <cstring>

#include "tavrik2/bytes.h"
#include "tavrik2/pe/ascii.h"
#include "tavrik2/pe/stream_io.h"

namespace tavrik2 {
namespace {

constexpr uint32_t kDosHeaderSize = 64;
constexpr uint32_t kLfanewByte = 60; // of the DOS header

// Distances from e_lfanew, where the PE signature is.
constexpr uint32_t kFileHeaderDistance = 4;
constexpr uint32_t kOptionalHeaderDistance = 24;

constexpr uint32_t kFileHeaderSize = 20;
constexpr uint32_t kNumberOfSectionsByte = 2;
constexpr uint32_t kSizeOfOptionalHeaderByte = 16;

constexpr uint32_t kOptionalHeaderFixedSize = 96; // PE32, without the data directories
constexpr uint32_t kSectionAlignmentByte = 32;
constexpr uint32_t kFileAlignmentByte = 36;
constexpr uint32_t kSubsystemByte = 68;
constexpr uint32_t kNumberOfRvaAndSizesByte = 92;
constexpr uint32_t kDataDirectorySize = 8;

constexpr int32_t kSectionNotFound = -1;

struct RawFileHeader {
    uint16_t NumberOfSections;
    uint16_t SizeOfOptionalHeader;
};

// Returns e_lfanew. After a short read it is 0, and the position is not restored.
uint32_t ReadLfanew(FileStream *stream, uint32_t handle) {
    const uint32_t position = Tell(stream, handle);
    Seek(stream, handle, 0);
    uint8_t dos_header[kDosHeaderSize];
    if (ReadCleared(stream, handle, dos_header) != kDosHeaderSize)
        return 0;
    Seek(stream, handle, position);
    return LoadU32(dos_header + kLfanewByte);
}

// Reads the header that is `distance` bytes past the PE signature and restores the position.
template <uint32_t Length>
void ReadHeaderAt(FileStream *stream, uint32_t handle, uint32_t distance, uint8_t (&header)[Length]) {
    const uint32_t position = Tell(stream, handle);
    const uint32_t lfanew = ReadLfanew(stream, handle);
    Seek(stream, handle, lfanew + distance);
    ReadCleared(stream, handle, header);
    Seek(stream, handle, position);
}

RawFileHeader ReadFileHeader(FileStream *stream, uint32_t handle) {
    uint8_t header[kFileHeaderSize];
    ReadHeaderAt(stream, handle, kFileHeaderDistance, header);
    return {LoadU16(header + kNumberOfSectionsByte), LoadU16(header + kSizeOfOptionalHeaderByte)};
}

void ReadSectionHeader(FileStream *stream, uint32_t handle, SectionHeader *out) {
    Read(stream, handle, out, sizeof *out);
}

bool HasName(const SectionHeader &header, const char *name) {
    char terminated[sizeof header.Name + 1] = {};
    std::memcpy(terminated, header.Name, sizeof header.Name);
    return EqualsIgnoringCase(terminated, name);
}

} // namespace

RawOptionalHeader ReadRawOptionalHeader(FileStream *stream, uint32_t handle) {
    uint8_t header[kOptionalHeaderFixedSize];
    ReadHeaderAt(stream, handle, kOptionalHeaderDistance, header);
    return {LoadU32(header + kSectionAlignmentByte), LoadU32(header + kFileAlignmentByte),
            LoadU16(header + kSubsystemByte), LoadU32(header + kNumberOfRvaAndSizesByte)};
}

uint32_t GetSectionCount(FileStream *stream, uint32_t handle) {
    return ReadFileHeader(stream, handle).NumberOfSections;
}

uint32_t GetSectionTableOffset(FileStream *stream, uint32_t handle) {
    const RawFileHeader file_header = ReadFileHeader(stream, handle);
    const uint32_t optional_header = ReadLfanew(stream, handle) + kOptionalHeaderDistance;
    if (file_header.SizeOfOptionalHeader != 0)
        return optional_header + file_header.SizeOfOptionalHeader;
    const uint32_t directories = ReadRawOptionalHeader(stream, handle).NumberOfRvaAndSizes;
    return optional_header + kOptionalHeaderFixedSize + kDataDirectorySize * directories;
}

int32_t FindSectionByName(FileStream *stream, uint32_t handle, const char *name) {
    const uint32_t table_offset = GetSectionTableOffset(stream, handle);
    const uint32_t count = GetSectionCount(stream, handle);
    Seek(stream, handle, table_offset);
    for (uint32_t index = 0; index < count; ++index) {
        SectionHeader header = {};
        ReadSectionHeader(stream, handle, &header);
        if (HasName(header, name))
            return AsSigned(Tell(stream, handle) - static_cast<uint32_t>(sizeof header));
    }
    return kSectionNotFound;
}

int GetSectionHeaderByName(FileStream *stream, uint32_t handle, const char *name, SectionHeader *out) {
    const int32_t offset = FindSectionByName(stream, handle, name);
    if (offset == kSectionNotFound)
        return 0;
    const uint32_t position = Tell(stream, handle);
    Seek(stream, handle, AsOffset(offset));
    ReadSectionHeader(stream, handle, out);
    Seek(stream, handle, position);
    return 1;
}

int GetSectionHeader(FileStream *stream, uint32_t handle, uint32_t index, SectionHeader *out) {
    const uint32_t offset = SectionHeaderOffset(GetSectionTableOffset(stream, handle), index);
    if (!SeekExactly(stream, handle, offset) || offset == 0xFFFFFFFF)
        return 0;
    const uint32_t position = Tell(stream, handle);
    Seek(stream, handle, offset);
    ReadSectionHeader(stream, handle, out);
    Seek(stream, handle, position);
    return 1;
}

} // namespace tavrik2
