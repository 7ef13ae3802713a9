/* One file of a segment, as the conditions of evaluation/table_conditions.h see it. */
#ifndef TAVRIK_STORE_STORED_ROW_H
#define TAVRIK_STORE_STORED_ROW_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "evaluation/table_conditions.h"
#include "store/segment.h"

namespace tavrik::store {

/** A row; the segment must outlive it. Sections are put together when they are first asked for. */
class StoredRow {
public:
    StoredRow(Segment &segment, Row row) : segment_(segment), row_(row) {}

    std::optional<uint32_t> Header(uint16_t field) {
        return field < rules::kHeaderFieldCount ? Narrow(segment_.Value(field, row_)) : std::nullopt;
    }

    std::span<const SectionHeader> sections() {
        if (!sections_)
            sections_ = segment_.SectionsOf(row_);
        return *sections_;
    }

    std::optional<std::size_t> SectionOf(uint16_t selector) {
        if (selector >= rules::kFirstSectionRole)
            return evaluation::FindSectionRole(selector, *this);
        return evaluation::IsSectionPosition(selector) && selector < sections().size()
                   ? std::optional<std::size_t>(selector)
                   : std::nullopt;
    }

    std::optional<uint32_t> SectionValue(uint16_t selector, uint8_t field) {
        if (selector < kColumnSections)
            return field > 0 && field < kSectionColumns ? Narrow(segment_.Value(SectionColumn(selector, field), row_))
                                                        : std::nullopt;
        const std::optional<std::size_t> section = SectionOf(selector);
        return section ? evaluation::SectionFieldValue(sections()[*section], field) : std::nullopt;
    }

private:
    static std::optional<uint32_t> Narrow(std::optional<uint64_t> value) {
        return value ? std::optional(static_cast<uint32_t>(*value)) : std::nullopt;
    }

    Segment &segment_;
    Row row_;
    std::optional<std::vector<SectionHeader>> sections_;
};

} // namespace tavrik::store

#endif
