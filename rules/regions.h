/* The regions of a file in which strings are searched for and of which measures are taken, by the codes that records
 * use for them. Which code means which region is defined here only. */
#ifndef TAVRIK_RULES_REGIONS_H
#define TAVRIK_RULES_REGIONS_H

#include <cstdint>

#include "rules/model.h"

namespace tavrik::rules {

/** What part of a file a region is. */
enum class RegionKind : uint8_t {
    None, // no region has the code
    File,
    Headers,        // SizeOfHeaders bytes from the file's start
    Overlay,        // what follows the headers and all raw data
    EntryCode,      // from the entry point to the end of its section's raw data
    RoleSection,    // raw data of the section with a role
    IndexedSection, // raw data of the section at a position, which the element gives
    NamedSection,   // raw data of the first section with a name, which the element gives
    ResourceData,   // data of the resource at a position, which the element gives
    DosStub,        // from the DOS header to the PE signature
    VisualBasic,    // from the project header to the end of its section's raw data
};

/** A region as its code says it. */
struct CodedRegion {
    RegionKind kind = RegionKind::None;
    SectionRole role = SectionRole::Any; // of RegionKind::RoleSection

    bool operator==(const CodedRegion &) const = default;
};

/** The code of a string region that counts positions from the region's start, and from its end. */
constexpr uint8_t CodeOf(StringKind kind) {
    return static_cast<uint8_t>(kind);
}
constexpr uint8_t FromEndCodeOf(StringKind kind) {
    return static_cast<uint8_t>(CodeOf(kind) + 1);
}

/** The code of a measured region, and of the section with a role as a measured region. */
constexpr uint8_t CodeOf(MeasureRegion region) {
    return static_cast<uint8_t>(region);
}
constexpr uint8_t MeasureCodeOf(SectionRole role) {
    return static_cast<uint8_t>(CodeOf(MeasureRegion::FirstRole) + static_cast<uint16_t>(role) - kFirstSectionRole);
}

/** The region of a string, by string_kind in either form. */
constexpr CodedRegion RegionOfString(uint8_t string_kind) {
    if (string_kind == 0 || string_kind > kMaxStringKind)
        return {};
    switch (static_cast<StringKind>(ForwardKind(string_kind))) {
    case StringKind::File:
        return {RegionKind::File};
    case StringKind::Headers:
        return {RegionKind::Headers};
    case StringKind::Overlay:
        return {RegionKind::Overlay};
    case StringKind::EntryCode:
        return {RegionKind::EntryCode};
    case StringKind::EntrySection:
        return {RegionKind::RoleSection, SectionRole::Entry};
    case StringKind::LastSection:
        return {RegionKind::RoleSection, SectionRole::Last};
    case StringKind::CodeSection:
        return {RegionKind::RoleSection, SectionRole::Code};
    case StringKind::NamedSection:
        return {RegionKind::NamedSection};
    case StringKind::IndexedSection:
        return {RegionKind::IndexedSection};
    case StringKind::ResourceSection:
        return {RegionKind::RoleSection, SectionRole::Resource};
    case StringKind::ImportSection:
        return {RegionKind::RoleSection, SectionRole::Import};
    case StringKind::ResourceData:
        return {RegionKind::ResourceData};
    case StringKind::ExportSection:
        return {RegionKind::RoleSection, SectionRole::Export};
    case StringKind::LargestSection:
        return {RegionKind::RoleSection, SectionRole::Largest};
    case StringKind::DosStub:
        return {RegionKind::DosStub};
    case StringKind::VisualBasic:
        return {RegionKind::VisualBasic};
    }
    return {};
}

/** The region of a measure, by param_a. */
constexpr CodedRegion RegionOfMeasure(uint8_t code) {
    if (code >= CodeOf(MeasureRegion::FirstRole) && code <= CodeOf(MeasureRegion::LastRole))
        return {RegionKind::RoleSection,
                static_cast<SectionRole>(kFirstSectionRole + code - CodeOf(MeasureRegion::FirstRole))};
    switch (static_cast<MeasureRegion>(code)) {
    case MeasureRegion::IndexedSection:
        return {RegionKind::IndexedSection};
    case MeasureRegion::File:
        return {RegionKind::File};
    case MeasureRegion::Headers:
        return {RegionKind::Headers};
    case MeasureRegion::Overlay:
        return {RegionKind::Overlay};
    case MeasureRegion::EntryCode:
        return {RegionKind::EntryCode};
    case MeasureRegion::ResourceData:
        return {RegionKind::ResourceData};
    case MeasureRegion::DosStub:
        return {RegionKind::DosStub};
    case MeasureRegion::VisualBasic:
        return {RegionKind::VisualBasic};
    default:
        return {};
    }
}

} // namespace tavrik::rules

#endif
