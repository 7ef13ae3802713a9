#include "pe/export_table.h"

#include <algorithm>
#include <array>

namespace tavrik::pe {

using namespace export_directory;

ExportTable::ExportTable(const Image &image) : image_(image) {
    const std::optional<uint32_t> rva = image.DirectoryRva(kExportDirectory);
    const std::optional<uint64_t> offset = rva ? image.OffsetOfRva(*rva) : std::nullopt;
    std::array<uint32_t, kFieldCount> directory = {};
    if (!offset || !image.bytes().Read(*offset, directory.data(), sizeof(directory)))
        return;
    name_count_ = directory[kNumberOfNames];
    name_table_ = image.OffsetOfRva(directory[kAddressOfNames]);
    if (const std::optional<uint64_t> name = image.OffsetOfRva(directory[kName]))
        module_ = image.bytes().Text(*name);
}

const std::unordered_set<std::string> &ExportTable::Names() {
    if (!names_are_read_ && name_table_) {
        for (uint32_t i = 0; i < std::min(name_count_, kMostNames); ++i) {
            const std::optional<uint32_t> rva = image_.bytes().Get<uint32_t>(*name_table_ + uint64_t{i} * sizeof(i));
            if (!rva)
                break;
            const std::optional<uint64_t> offset = image_.OffsetOfRva(*rva);
            if (std::optional<std::string> name = offset ? image_.bytes().Text(*offset) : std::nullopt)
                names_.insert(std::move(*name));
        }
    }
    names_are_read_ = true;
    return names_;
}

} // namespace tavrik::pe
