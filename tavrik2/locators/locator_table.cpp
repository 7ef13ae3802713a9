#include "tavrik2/locators/locators.h"

namespace tavrik2 {
namespace {

using Locate = int (*)(const TargetFile &file, LocatorResult *result);

// The C signature of a locator that takes the view.
template <Locate Locator>
int Call(FileStream *stream, uint32_t handle, int32_t file_size, const uint32_t *data_dirs,
         const FileHeader *file_header, const OptionalHeader *opt_header, const SectionHeader *first_section,
         const SectionHeader *last_section, const uint8_t *entry_code, LocatorResult *result) {
    return Locator(
        {stream, handle, file_size, data_dirs, file_header, opt_header, first_section, last_section, entry_code},
        result);
}

constexpr uint32_t kFlags = 1;
constexpr uint32_t kEntry47Flags = 2;

} // namespace

extern "C" const LocatorTableImage LocatorTable;

constinit const LocatorTableImage LocatorTable = {
    {
        {Call<Locator0>, kFlags},  {Call<Locator1>, kFlags},  {Call<Locator2>, kFlags},
        {Call<Locator3>, kFlags},  {Call<Locator4>, kFlags},  {Call<Locator5>, kFlags},
        {Call<Locator6>, kFlags},  {Call<Locator7>, kFlags},  {Call<Locator8>, kFlags},
        {Call<Locator9>, kFlags},  {Call<Locator10>, kFlags}, {Call<Locator11>, kFlags},
        {Call<Locator12>, kFlags}, {Call<Locator13>, kFlags}, {Call<Locator14>, kFlags},
        {Call<Locator15>, kFlags}, {Call<Locator16>, kFlags}, {Call<Locator17>, kFlags},
        {Call<Locator18>, kFlags}, {Call<Locator19>, kFlags}, {Call<Locator20>, kFlags},
        {Call<Locator21>, kFlags}, {Call<Locator22>, kFlags}, {Call<Locator23>, kFlags},
        {Call<Locator24>, kFlags}, {Call<Locator25>, kFlags}, {Call<Locator26>, kFlags},
        {Call<Locator27>, kFlags}, {Call<Locator28>, kFlags}, {Call<Locator29>, kFlags},
        {Call<Locator30>, kFlags}, {Call<Locator31>, kFlags}, {Call<Locator32>, kFlags},
        {Call<Locator33>, kFlags}, {Call<Locator34>, kFlags}, {Call<Locator35>, kFlags},
        {Call<Locator36>, kFlags}, {Call<Locator37>, kFlags}, {Call<Locator38>, kFlags},
        {Call<Locator39>, kFlags}, {Call<Locator40>, kFlags}, {Call<Locator41>, kFlags},
        {Call<Locator42>, kFlags}, {Call<Locator43>, kFlags}, {Call<Locator44>, kFlags},
        {Call<Locator45>, kFlags}, {Call<Locator46>, kFlags}, {Call<Locator47>, kEntry47Flags},
        {Call<Locator48>, kFlags}, {Call<Locator49>, kFlags},
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
