/* The imports of a PE file. */
#ifndef TAVRIK_PE_IMPORT_TABLE_H
#define TAVRIK_PE_IMPORT_TABLE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

#include "pe/image.h"

namespace tavrik::pe {

/** The import table of a file of any content, within fixed bounds. Delay imports do not count. */
class ImportTable {
public:
    static constexpr std::size_t kMostDescriptors = 1024;
    static constexpr std::size_t kMostFunctions = 4096; // of one descriptor
    static constexpr std::size_t kMostFunctionsInAll = 65536;

    using Functions = std::unordered_set<std::string>;

    struct Descriptor {
        std::array<uint32_t, import_descriptor::kFieldCount> fields = {}; // OriginalFirstThunk to FirstThunk
        std::optional<std::string> module; // its name; nothing when it cannot be read or is too long
    };

    /** Reads the descriptors and counts their functions; `image` must outlive the object. */
    explicit ImportTable(const Image &image);

    std::span<const Descriptor> descriptors() const { return descriptors_; }

    /** The functions that all descriptors import together. */
    uint32_t function_count() const { return function_count_; }

    /** The names of a descriptor's functions, ordinal n as "#n"; read when first asked for. */
    const Functions &FunctionsOf(std::size_t descriptor);

private:
    struct Thunks {
        uint64_t offset = 0; // in the file
        std::size_t count = 0;
        bool are_read = false;
        Functions names;
    };

    uint64_t ThunkAt(uint64_t offset) const;
    Thunks FindThunks(const Descriptor &descriptor) const;
    std::optional<std::string> FunctionName(uint64_t thunk) const;

    const Image &image_;
    uint8_t thunk_size_; // bytes
    std::vector<Descriptor> descriptors_;
    std::vector<Thunks> thunks_; // one for each descriptor
    uint32_t function_count_ = 0;
};

} // namespace tavrik::pe

#endif
