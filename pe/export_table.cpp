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
    function_count_ = directory[kNumberOfFunctions];
    name_table_ = image.OffsetOfRva(directory[kAddressOfNames]);
    ordinal_table_ = image.OffsetOfRva(directory[kAddressOfNameOrdinals]);
    function_table_ = image.OffsetOfRva(directory[kAddressOfFunctions]);
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

std::vector<uint32_t> ExportTable::FunctionsNamed(std::string_view prefix, uint32_t most) const {
    std::vector<uint32_t> functions;
    if (!name_table_ || !ordinal_table_ || !function_table_)
        return functions;
    std::string start(prefix.size(), '\0');
    for (uint32_t i = 0; i < std::min(name_count_, most); ++i) {
        const std::optional<uint32_t> rva = image_.bytes().Get<uint32_t>(*name_table_ + uint64_t{i} * sizeof(i));
        const std::optional<uint64_t> name = rva ? image_.OffsetOfRva(*rva) : std::nullopt;
        const std::optional<uint16_t> place = image_.bytes().Get<uint16_t>(*ordinal_table_ + uint64_t{i} * 2);
        if (!name || !place || *place >= function_count_ || !image_.bytes().Read(*name, start.data(), start.size()) ||
            start != prefix)
            continue;
        if (const std::optional<uint32_t> function =
                image_.bytes().Get<uint32_t>(*function_table_ + uint64_t{*place} * sizeof(uint32_t)))
            functions.push_back(*function);
    }
    return functions;
}

} // namespace tavrik::pe
