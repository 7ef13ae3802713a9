/* Resource data entries of one type, from the first block of the resource directory. */
#ifndef TAVRIK2_LOCATORS_SCANS_RESOURCE_DATA_ENTRIES_H
#define TAVRIK2_LOCATORS_SCANS_RESOURCE_DATA_ENTRIES_H

#include <cstdint>

#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** A PE resource data entry, as stored. */
struct TAVRIK_PACKED ResourceDataEntry {
    uint32_t OffsetToData; // an RVA
    uint32_t Size;
    uint32_t CodePage;
    uint32_t Reserved;
};
static_assert(sizeof(ResourceDataEntry) == 16);

/** Takes the type entry whatever it is: the first one. */
inline constexpr int32_t kAnyResourceType = -1;

/** Collects up to `max_entries` (at least 1) data entries of the resource type `type_id` into `entries`, from the 4096
 * bytes at which the directory at `resource_rva` begins; whatever lies outside that block counts as absent. Below each
 * entry of the type's directory only the first entry of every nested directory is followed, at most four levels down.
 *
 * Returns 1 with their number in `count`. Returns 0 otherwise: with 0 in `count` when the type's directory was walked
 * and held none, else with `count` untouched. */
int FindResourceDataEntries(uint32_t handle, uint32_t resource_rva, int32_t file_size, int32_t type_id,
                            ResourceDataEntry *entries, int32_t max_entries, uint32_t *count, FileStream *stream);

/** The same for a locator's file, with the capacity told by the array. */
template <uint32_t Capacity>
int FindResourceDataEntries(const TargetFile &file, uint32_t resource_rva, uint32_t type_id,
                            ResourceDataEntry (&entries)[Capacity], uint32_t *count) {
    return FindResourceDataEntries(file.handle, resource_rva, file.file_size, AsSigned(type_id), entries,
                                   static_cast<int32_t>(Capacity), count, file.stream);
}

} // namespace tavrik2

#endif
