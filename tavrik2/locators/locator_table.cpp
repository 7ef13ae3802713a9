#include "tavrik2/locators/locators.h"

namespace tavrik2 {
namespace {

// The C signature of an entry: nothing of the file is read before the gate is passed.
template <const GateView &Gate, Locate Search, PayloadKind Kind>
int Call(FileStream *stream, uint32_t handle, int32_t file_size, const uint32_t *data_dirs,
         const FileHeader *file_header, const OptionalHeader *opt_header, const SectionHeader *first_section,
         const SectionHeader *last_section, const uint8_t *entry_code, LocatorResult *result) {
    const TargetFile file = {stream,     handle,        file_size,    data_dirs, file_header,
                             opt_header, first_section, last_section, entry_code};
    Finding finding;
    if (!Passes(Gate, file) || Search(file, &finding) == kDeclined)
        return kDeclined;
    *result = {static_cast<uint32_t>(Kind), finding.offset, finding.size};
    return 1;
}

constexpr uint32_t kEntryNumbers[] = {
#define LOCATOR_ENTRY(number, flags, kind, description) number,
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY
};

consteval bool AreInOrder() {
    uint32_t position = 0;
    for (const uint32_t number : kEntryNumbers) {
        if (number != position++)
            return false;
    }
    return position == LOCATOR_COUNT;
}
static_assert(AreInOrder(), "an entry's number is its position in the table");

} // namespace

extern "C" const LocatorTableImage LocatorTable;

constinit const LocatorTableImage LocatorTable = {
    {
#define LOCATOR_ENTRY(number, flags, kind, description) {Call<kGate##number, Locate##number, kind>, flags},
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY
    },
    LOCATOR_COUNT,
};

} // namespace tavrik2

extern "C" uint32_t HeurGetLocatorTable(const LocatorTableEntry **out_table, uint32_t *out_count) {
    if (out_table == nullptr || out_count == nullptr)
        return 0;
    *out_table = tavrik2::LocatorTable.entries;
    *out_count = tavrik2::LocatorTable.count;
    return 1;
}
