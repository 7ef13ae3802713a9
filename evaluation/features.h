/* What rules can ask of a file. Everything is found out when it is first asked for, and once. */
#ifndef TAVRIK_EVALUATION_FEATURES_H
#define TAVRIK_EVALUATION_FEATURES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <vector>

#include "base/file_bytes.h"
#include "evaluation/resource_strings.h"
#include "evaluation/table_conditions.h"
#include "evaluation/vb_project.h"
#include "pe/export_table.h"
#include "pe/image.h"
#include "pe/import_table.h"
#include "pe/resource_tree.h"
#include "rules/names.h"
#include "rules/regions.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

using rules::kHeaderFieldCount;

/** The features of one file, of any content. Serves one thread. */
class Features {
public:
    /** Reads the headers; the source must outlive the object. */
    explicit Features(base::ByteSource &source);
    Features(const Features &) = delete;
    Features &operator=(const Features &) = delete;

    /** Whether the file is a PE file with its file header. Rules are not asked of others. */
    bool IsPe() const { return image_.IsPe(); }

    base::FileBytes &bytes() { return bytes_; }
    const pe::Image &image() const { return image_; }
    std::span<const SectionHeader> sections() const { return image_.sections(); }

    /** The value of a header condition's field, widened; nothing when the file does not have it. */
    std::optional<uint32_t> Header(uint16_t field) {
        if (field >= kHeaderFieldCount)
            return std::nullopt;
        if (states_[field] == State::Unknown)
            FindHeader(field);
        if (states_[field] == State::Absent)
            return std::nullopt;
        return values_[field];
    }

    /** The position of the section that a selector names: an index below 500, or a role from 600 on. */
    std::optional<std::size_t> SectionOf(uint16_t selector);

    /** The value of a field of the section that a selector names; nothing without such a section or field. */
    std::optional<uint32_t> SectionValue(uint16_t selector, uint8_t field);

    /** The region of a string; of a measure, by its code and number (param_a and param_c). */
    base::Region StringRegion(const StringFeature &string);
    base::Region MeasuredRegion(uint8_t code, uint8_t index);

    /** Measures of a region's first `length` bytes (0: all): the entropy in thousandths of a bit, the CRC-32. */
    std::optional<uint32_t> Entropy(uint8_t code, uint8_t index, uint32_t length);
    std::optional<uint32_t> Crc32(uint8_t code, uint8_t index, uint32_t length);

    pe::ImportTable &Imports();
    pe::ExportTable &Exports();
    const pe::ResourceTree &Resources();
    ResourceStrings &Strings();
    VbProject &Vb();

    /** The CRC-32 of a resource's data; nothing without data, or when the data lies beyond the bound of what is read
     * for this. */
    std::optional<uint32_t> ResourceCrc32(std::size_t resource);

private:
    enum class State : uint8_t { Unknown, Absent, Present };
    static constexpr std::size_t kRoles = rules::kLastSectionRole - rules::kFirstSectionRole + 1;
    using MeasureKey = std::tuple<uint8_t, uint8_t, uint8_t, uint32_t>; // kind, code, index, length

    struct SectionPlace {
        bool is_known = false;
        std::optional<std::size_t> section;
    };

    void FindHeader(uint16_t field);
    std::optional<uint32_t> DerivedValue(uint16_t field);
    void FindRichValues();
    void Set(uint16_t field, std::optional<uint32_t> value);
    base::Region RawDataOf(std::optional<std::size_t> section) const;
    base::Region SectionNamed(std::string_view name) const;
    base::Region RegionAt(rules::CodedRegion region, uint8_t index);
    base::Region EntryCode();
    base::Region ResourceData(std::size_t resource);
    uint64_t OverlayOffset() const;
    template <typename Measure>
    std::optional<uint32_t> Measured(MeasureKey key, Measure measure);

    base::FileBytes bytes_;
    pe::Image image_;
    std::array<State, kHeaderFieldCount> states_ = {};
    std::array<uint32_t, kHeaderFieldCount> values_ = {};
    std::array<SectionPlace, kRoles> roles_ = {};
    std::optional<pe::ImportTable> imports_;
    std::optional<pe::ExportTable> exports_;
    std::optional<pe::ResourceTree> resources_;
    std::unique_ptr<ResourceStrings> strings_;
    std::optional<VbProject> vb_;
    std::map<MeasureKey, std::optional<uint32_t>> measures_;
    std::vector<uint64_t> resource_ends_; // bytes of data up to and with each resource
};

} // namespace tavrik::evaluation

#endif
