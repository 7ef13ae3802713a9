/* What rules can ask of a file. Everything is found out when it is first asked for, and once. */
#ifndef TAVRIK_HOST_EVALUATION_FEATURES_H
#define TAVRIK_HOST_EVALUATION_FEATURES_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "host/evaluation/export_table.h"
#include "host/evaluation/file_bytes.h"
#include "host/evaluation/import_table.h"
#include "host/evaluation/resource_tree.h"
#include "host/evaluation/vb_project.h"
#include "tavrik2/pe/section_header.h"
#include "tavrik2/rules/heuristic_rule.h"

namespace tavrik::host {

/** The number of header fields that conditions can name, 0 to 263. */
inline constexpr std::size_t kHeaderFieldCount = 264;

/** The features of one file, of any content. Serves one thread; the source must outlive it. */
class Features {
public:
    explicit Features(ByteSource &source);
    Features(const Features &) = delete;
    Features &operator=(const Features &) = delete;

    /** Whether the file is a PE file with its file header; on others rules are not asked, and all else is absent. */
    bool IsPe() const { return is_pe_; }

    FileBytes &bytes() { return bytes_; }

    /** The value of a header condition's field, widened; nothing when the file does not have it. */
    std::optional<uint32_t> Header(uint16_t field) {
        if (field >= kHeaderFieldCount)
            return std::nullopt;
        if (states_[field] == State::kUnknown)
            LoadHeader(field);
        if (states_[field] == State::kAbsent)
            return std::nullopt;
        return values_[field];
    }

    bool IsPe32Plus() const { return is_plus_; }

    /** The section headers that count, in their order. */
    std::span<const SectionHeader> Sections() const { return sections_; }

    /** The position of the section that a selector names: an index or a role from 600 on. */
    std::optional<std::size_t> SectionOf(uint16_t selector);

    /** The first section whose extent contains the RVA. */
    std::optional<std::size_t> SectionHolding(uint32_t rva) const;

    /** The file offset of an RVA, or of an address in the image. */
    std::optional<uint64_t> OffsetOfRva(uint32_t rva) const;
    std::optional<uint64_t> OffsetOfAddress(uint32_t address) const;

    /** The RVA of data directory k, unless the directory is absent or its address is 0. */
    std::optional<uint32_t> DirectoryRva(unsigned directory);

    /** The raw data of a section, cut at the end of the file. */
    Region RawData(std::size_t section) const;

    /** The region of a string, or of a measure (`code` is its param_a, `index` its param_c). */
    Region StringRegion(const StringFeature &string);
    Region MeasureRegion(uint8_t code, uint8_t index);

    /** Measures of a region's first `length` bytes (0: all): Shannon entropy in thousandths of a bit, CRC-32. */
    std::optional<uint32_t> Entropy(uint8_t code, uint8_t index, uint32_t length);
    std::optional<uint32_t> Crc32(uint8_t code, uint8_t index, uint32_t length);

    const ImportTable &Imports();
    const ExportTable &Exports();
    const ResourceTree &Resources();

    /** The CRC-32 of a resource's data; nothing when there is none, or beyond the bound of what is read for them. */
    std::optional<uint32_t> ResourceCrc32(std::size_t resource);

    VbProject &Vb();
};

} // namespace tavrik::host

#endif
