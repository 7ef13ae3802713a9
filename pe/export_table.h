/* The exports of a PE file. */
#ifndef TAVRIK_PE_EXPORT_TABLE_H
#define TAVRIK_PE_EXPORT_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "pe/image.h"

namespace tavrik::pe {

/** The export directory of a file of any content. */
class ExportTable {
public:
    static constexpr uint32_t kMostNames = 16384;

    /** Reads the directory; `image` must outlive the object. */
    explicit ExportTable(const Image &image);

    /** The module's own name; nothing without one that can be read. */
    const std::optional<std::string> &module() const { return module_; }

    /** NumberOfNames as it is in the file; 0 without a directory. */
    uint32_t name_count() const { return name_count_; }

    /** The exported names; read when first asked for. */
    const std::unordered_set<std::string> &Names();

    /** The RVAs of functions whose names begin with `prefix`, of the first `most` names of the table. */
    std::vector<uint32_t> FunctionsNamed(std::string_view prefix, uint32_t most) const;

private:
    const Image &image_;
    std::optional<std::string> module_;
    uint32_t name_count_ = 0;
    uint32_t function_count_ = 0;
    // File offsets.
    std::optional<uint64_t> name_table_;     // of the names' RVAs
    std::optional<uint64_t> ordinal_table_;  // of each name's place in the next one
    std::optional<uint64_t> function_table_; // of the functions' RVAs
    bool names_are_read_ = false;
    std::unordered_set<std::string> names_;
};

} // namespace tavrik::pe

#endif
