/* The locator's view of one file: the ten arguments of a PayloadLocator under their names. */
#ifndef TAVRIK2_LOCATORS_TARGET_FILE_H
#define TAVRIK2_LOCATORS_TARGET_FILE_H

#include <cstdint>

#include "tavrik2/bytes.h"
#include "tavrik2/payload_locator.h"
#include "tavrik2/pe/rva.h"
#include "tavrik2/pe/section_table.h"
#include "tavrik2/pe/stream_io.h"

namespace tavrik2 {

/** Everything that a locator may look at; borrows the host's records for the length of one call. */
struct TargetFile {
    FileStream *stream;
    uint32_t handle;
    int32_t file_size;
    const uint32_t *data_dirs;
    const FileHeader *file_header;
    const OptionalHeader *opt_header;
    const SectionHeader *first_section;
    const SectionHeader *last_section;
    const uint8_t *entry_code;

    uint32_t resource_rva() const { return DataDirectoryWord(4); }
    uint32_t resource_size() const { return DataDirectoryWord(5); }

    /** Fills the cleared `block` from `offset`; false when the stream lands elsewhere or falls short. */
    template <uint32_t Length>
    bool ReadBlockAt(uint32_t offset, uint8_t (&block)[Length]) const {
        return tavrik2::ReadBlockAt(stream, handle, offset, block);
    }

    /** Moves the stream to `offset`; false when it lands elsewhere. */
    bool SeekExactly(uint32_t offset) const { return tavrik2::SeekExactly(stream, handle, offset); }

    /** Clears `block` and reads its length from the stream's position; returns the count the stream reports. */
    template <uint32_t Length>
    uint32_t ReadCleared(uint8_t (&block)[Length]) const {
        return tavrik2::ReadCleared(stream, handle, block);
    }

    /** Reads the section header at `index` from the file into a cleared record; false when that fails. */
    bool ReadSectionHeader(uint32_t index, SectionHeader *out) const {
        *out = {};
        return GetSectionHeader(stream, handle, index, out) == 1;
    }

    /** Reads the header of the section of that name into a cleared record; false when there is none. */
    bool ReadSectionHeader(const char *name, SectionHeader *out) const {
        *out = {};
        return GetSectionHeaderByName(stream, handle, name, out) == 1;
    }

    /** The file offset of an RVA, kUnmappedRva when nothing maps it. */
    uint32_t OffsetOf(uint32_t rva) const { return RvaToFileOffset(stream, handle, rva); }

    /** lowest <= offset < file_size, as signed values. */
    bool IsInFile(uint32_t offset, int32_t lowest) const {
        return AsSigned(offset) >= lowest && AsSigned(offset) < file_size;
    }

private:
    uint32_t DataDirectoryWord(uint32_t word) const { return LoadU32(data_dirs + word); }
};

/** The file offset just past a section's raw data; wraps. */
inline uint32_t RawDataEnd(const SectionHeader &section) {
    return section.PointerToRawData + section.SizeOfRawData;
}

/** Where a payload is, as a locator reports it: a file offset, and the bytes reported there. */
struct Finding {
    uint32_t offset;
    uint32_t size;
};

/** Writes a finding and returns 1, a locator's answer for a match. */
inline int Report(Finding *finding, uint32_t offset, uint32_t size) {
    *finding = {offset, size};
    return 1;
}

/** A locator's answer for any failure; its finding stays untouched. */
inline constexpr int kDeclined = 0;

} // namespace tavrik2

#endif
