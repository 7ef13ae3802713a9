/* The exports of a PE file. */
#ifndef TAVRIK_PE_EXPORT_TABLE_H
#define TAVRIK_PE_EXPORT_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>

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

private:
    const Image &image_;
    std::optional<std::string> module_;
    uint32_t name_count_ = 0;
    std::optional<uint64_t> name_table_; // file offset of the names' RVAs
    bool names_are_read_ = false;
    std::unordered_set<std::string> names_;
};

} // namespace tavrik::pe

#endif
