#include "pe/import_table.h"

#include <algorithm>

namespace tavrik::pe {

namespace {

// Whether a name reads as that of an ordinal: "#" and digits.
bool IsOrdinal(std::string_view name) {
    return name.size() > 1 && name.front() == '#' && name.find_first_not_of("0123456789", 1) == std::string_view::npos;
}

} // namespace

ImportTable::ImportTable(const Image &image) : image_(image), thunk_size_(ThunkSize(image.IsPe32Plus())) {
    const std::optional<uint32_t> rva = image.DirectoryRva(kImportDirectory);
    const std::optional<uint64_t> table = rva ? image.OffsetOfRva(*rva) : std::nullopt;
    if (!table)
        return;
    for (uint64_t at = *table; descriptors_.size() < kMostDescriptors; at += import_descriptor::kSize) {
        Descriptor descriptor;
        if (!image.bytes().Read(at, descriptor.fields.data(), import_descriptor::kSize) ||
            descriptor.fields[import_descriptor::kName] == 0)
            break;
        if (const std::optional<uint64_t> name = image.OffsetOfRva(descriptor.fields[import_descriptor::kName]))
            descriptor.module = image.bytes().Text(*name);
        thunks_.push_back(FindThunks(descriptor));
        function_count_ += static_cast<uint32_t>(thunks_.back().count);
        descriptors_.push_back(std::move(descriptor));
    }
}

// 0 where it cannot be read, as at the end of the array.
uint64_t ImportTable::ThunkAt(uint64_t offset) const {
    return thunk_size_ == sizeof(uint64_t) ? image_.bytes().Get<uint64_t>(offset).value_or(0)
                                           : image_.bytes().Get<uint32_t>(offset).value_or(0);
}

ImportTable::Thunks ImportTable::FindThunks(const Descriptor &descriptor) const {
    const uint32_t original = descriptor.fields[import_descriptor::kOriginalFirstThunk];
    std::optional<uint64_t> offset = original == 0 ? std::nullopt : image_.OffsetOfRva(original);
    if (!offset)
        offset = image_.OffsetOfRva(descriptor.fields[import_descriptor::kFirstThunk]);
    Thunks thunks;
    if (!offset)
        return thunks;
    thunks.offset = *offset;
    const std::size_t most = std::min<std::size_t>(kMostFunctions, kMostFunctionsInAll - function_count_);
    while (thunks.count < most && ThunkAt(*offset + thunks.count * thunk_size_) != 0)
        ++thunks.count;
    return thunks;
}

std::optional<std::string> ImportTable::FunctionName(uint64_t thunk) const {
    const unsigned top_bit = thunk_size_ * 8u - 1;
    if (thunk >> top_bit != 0)
        return '#' + std::to_string(thunk & kThunkOrdinalMask);
    const std::optional<uint64_t> offset = image_.OffsetOfRva(static_cast<uint32_t>(thunk) & kThunkRvaMask);
    std::optional<std::string> name = offset ? image_.bytes().Text(*offset + kHintSize) : std::nullopt;
    // A function that is called like an ordinal is none.
    return name && IsOrdinal(*name) ? std::nullopt : name;
}

const ImportTable::Functions &ImportTable::FunctionsOf(std::size_t descriptor) {
    Thunks &thunks = thunks_[descriptor];
    if (!thunks.are_read) {
        thunks.are_read = true;
        for (std::size_t i = 0; i < thunks.count; ++i)
            if (std::optional<std::string> name = FunctionName(ThunkAt(thunks.offset + i * thunk_size_)))
                thunks.names.insert(std::move(*name));
    }
    return thunks.names;
}

} // namespace tavrik::pe
