#include "tavrik2/locators/scans/resource_data_entries.h"

#include "tavrik2/locators/places.h"

namespace tavrik2 {
namespace {

constexpr uint32_t kBlockLength = kFindResourceDataEntriesRead;
constexpr uint32_t kDirectoryHeaderSize = kFindResourceDataEntriesHeaderSize;
constexpr uint32_t kNamedEntriesByte = kFindResourceDataEntriesNamedCountAt; // of a directory header
constexpr uint32_t kIdEntriesByte = kFindResourceDataEntriesIdCountAt;
constexpr uint32_t kSubdirectoryBit = 1u << kFindResourceDataEntriesSubdirectoryBit;
constexpr uint32_t kMaxSteps = kFindResourceDataEntriesSteps; // two for every nested directory

struct TAVRIK_PACKED DirectoryEntry {
    uint32_t Name;
    uint32_t OffsetToData;

    bool IsSubdirectory() const { return (OffsetToData & kSubdirectoryBit) != 0; }
    uint32_t Target() const { return OffsetToData & ~kSubdirectoryBit; }
};
static_assert(sizeof(DirectoryEntry) == 8);

// The block, with offsets relative to the start of the resource directory. Every record must end before its last byte.
struct Block {
    uint8_t bytes[kBlockLength];

    static bool Holds(uint32_t offset, uint32_t size) { return offset + size < kBlockLength; }

    template <typename Record>
    bool Get(uint32_t offset, Record *record) const {
        if (!Holds(offset, sizeof *record))
            return false;
        *record = Load<Record>(bytes + offset);
        return true;
    }

    // The number of entries of the directory at an offset that holds a header.
    uint32_t EntryCount(uint32_t directory) const {
        return uint32_t{LoadU16(bytes + directory + kNamedEntriesByte)} + LoadU16(bytes + directory + kIdEntriesByte);
    }
};

constexpr uint32_t EntryOffset(uint32_t directory, uint32_t index) {
    return directory + kDirectoryHeaderSize + static_cast<uint32_t>(sizeof(DirectoryEntry)) * index;
}

bool FindType(const Block &block, int32_t type_id, DirectoryEntry *type) {
    const uint32_t count = block.EntryCount(0);
    for (uint32_t index = 0; index < count; ++index) {
        if (!block.Get(EntryOffset(0, index), type))
            return false;
        if (type_id == kAnyResourceType || (type->Name == AsOffset(type_id) && type->IsSubdirectory()))
            return true;
    }
    return false;
}

enum class Descent { Data, Nothing, TooDeep };

// Follows the first entry of every nested directory down to a data entry.
Descent FindData(const Block &block, DirectoryEntry entry, ResourceDataEntry *data) {
    uint32_t steps = 0;
    while (entry.IsSubdirectory()) {
        const uint32_t directory = entry.Target();
        if (!Block::Holds(directory, kDirectoryHeaderSize))
            return Descent::Nothing;
        if (++steps == kMaxSteps)
            return Descent::TooDeep;
        if (!block.Get(EntryOffset(directory, 0), &entry))
            return Descent::Nothing;
        if (++steps == kMaxSteps)
            return Descent::TooDeep;
    }
    return block.Get(entry.OffsetToData, data) ? Descent::Data : Descent::Nothing;
}

} // namespace

int FindResourceDataEntries(uint32_t handle, uint32_t resource_rva, int32_t file_size, int32_t type_id,
                            ResourceDataEntry *entries, int32_t max_entries, uint32_t *count, FileStream *stream) {
    if (resource_rva == 0 || entries == nullptr || count == nullptr || stream == nullptr || max_entries < 1)
        return 0;

    const uint32_t offset = RvaToFileOffset(stream, handle, resource_rva);
    Block block;
    if (AsSigned(offset) <= 0 || AsSigned(offset) >= file_size || !ReadBlockAt(stream, handle, offset, block.bytes))
        return 0;

    DirectoryEntry type;
    if (!FindType(block, type_id, &type))
        return 0;
    const uint32_t directory = type.Target();
    if (!Block::Holds(directory, kDirectoryHeaderSize))
        return 0;
    const uint32_t type_entries = block.EntryCount(directory);
    if (!kFindResourceDataEntriesTypeEntries.Contains(type_entries))
        return 0;

    int32_t found = 0;
    for (uint32_t index = 0; index < type_entries && found < max_entries; ++index) {
        DirectoryEntry entry;
        if (!block.Get(EntryOffset(directory, index), &entry))
            break;
        ResourceDataEntry data;
        const Descent descent = FindData(block, entry, &data);
        if (descent == Descent::TooDeep)
            return 0;
        if (descent == Descent::Data)
            entries[found++] = data;
    }
    *count = AsOffset(found);
    return found > 0 ? 1 : 0;
}

} // namespace tavrik2
