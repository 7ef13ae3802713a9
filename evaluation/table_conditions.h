/* What conditions on header values, on the section table and on traits mean. Both the evaluators and a store of
 * features take it from here: a `File` is anything that has
 *
 *     std::optional<uint32_t> Header(uint16_t field);
 *     std::span<const SectionHeader> sections();
 *     std::optional<std::size_t> SectionOf(uint16_t selector);
 *     std::optional<uint32_t> SectionValue(uint16_t selector, uint8_t field);
 *
 * with the meaning of the members of Features. */
#ifndef TAVRIK_EVALUATION_TABLE_CONDITIONS_H
#define TAVRIK_EVALUATION_TABLE_CONDITIONS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "pe/image.h"
#include "rules/model.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "tavrik2/heuristic_rule.h"
#include "tavrik2/section_header.h"

namespace tavrik::evaluation {

/** The name of a section, from its header. */
inline std::string_view SectionName(const SectionHeader &section) {
    const char *name = reinterpret_cast<const char *>(section.Name);
    return {name, strnlen(name, sizeof(section.Name))};
}

/** Whether the integer `x` of the file meets an operator and a value. */
inline bool MeetsNumber(uint8_t op, uint32_t x, uint32_t value) {
    switch (static_cast<rules::Operator>(op)) {
    case rules::Operator::Equal:
        return x == value;
    case rules::Operator::NotEqual:
        return x != value;
    case rules::Operator::Less:
        return x < value;
    case rules::Operator::Greater:
        return x > value;
    case rules::Operator::AtMost:
        return x <= value;
    case rules::Operator::AtLeast:
        return x >= value;
    case rules::Operator::HasBits:
        return (x & value) == value;
    default:
        return false;
    }
}

inline bool MeetsValue(uint8_t op, std::optional<uint32_t> x, uint32_t value) {
    return x && MeetsNumber(op, *x, value);
}

/** For a name in a list: whether the list has it as the operator wants. */
inline bool MeetsPresence(uint8_t op, bool is_there) {
    return op == static_cast<uint8_t>(rules::Operator::Equal)
               ? is_there
               : op == static_cast<uint8_t>(rules::Operator::NotEqual) && !is_there;
}

/** Whether every element is met, where a run of elements that ask with `==` about the same value is met by one of them.
 */
template <typename Element, typename IsSameValue, typename IsMet>
bool EveryRunIsMet(std::span<const Element> elements, IsSameValue is_same_value, IsMet is_met) {
    constexpr auto kEqual = static_cast<uint8_t>(rules::Operator::Equal);
    for (std::size_t i = 0; i < elements.size();) {
        const Element &first = elements[i];
        bool met = is_met(first);
        for (++i;
             first.op == kEqual && i < elements.size() && elements[i].op == kEqual && is_same_value(first, elements[i]);
             ++i)
            met = met || is_met(elements[i]);
        if (!met)
            return false;
    }
    return true;
}

/** The position of the section with a role, by the header values and the section table. */
template <typename File>
std::optional<std::size_t> FindSectionRole(uint16_t role, File &file) {
    namespace field = rules::header_field;
    const std::span<const SectionHeader> sections = file.sections();
    const auto holding = [&](std::optional<uint32_t> rva) {
        return rva ? pe::SectionHolding(sections, *rva) : std::nullopt;
    };
    const auto holding_if_not_0 = [&](uint16_t number) {
        const std::optional<uint32_t> rva = file.Header(number);
        return rva == 0u ? std::nullopt : holding(rva);
    };
    switch (static_cast<rules::SectionRole>(role)) {
    case rules::SectionRole::Last:
        return sections.empty() ? std::nullopt : std::optional(sections.size() - 1);
    case rules::SectionRole::NextToLast:
        return sections.size() > 1 ? std::optional(sections.size() - 2) : std::nullopt;
    case rules::SectionRole::Entry:
        return holding_if_not_0(field::kAddressOfEntryPoint);
    case rules::SectionRole::Code:
        return holding(file.Header(field::kBaseOfCode));
    case rules::SectionRole::Data:
        return holding(file.Header(field::kBaseOfData));
    case rules::SectionRole::Import:
        return holding_if_not_0(field::kImportTable);
    case rules::SectionRole::Resource:
        return holding_if_not_0(field::kResourceTable);
    case rules::SectionRole::Export:
        return holding_if_not_0(field::kExportTable);
    case rules::SectionRole::Relocation:
        return holding_if_not_0(field::kBaseRelocationTable);
    case rules::SectionRole::Tls:
        return holding_if_not_0(field::kTlsTable);
    case rules::SectionRole::Largest: {
        const auto largest =
            std::max_element(sections.begin(), sections.end(), [](const auto &left, const auto &right) {
                return uint32_t{left.SizeOfRawData} < uint32_t{right.SizeOfRawData};
            });
        return sections.empty() ? std::nullopt : std::optional(static_cast<std::size_t>(largest - sections.begin()));
    }
    default:
        return std::nullopt;
    }
}

/** Whether a section selector names a position of the section table, and which. */
inline bool IsSectionPosition(uint16_t selector) {
    constexpr uint16_t kSelectablePositions = 500; // selectors from this one on name none
    return selector < kSelectablePositions;
}

/** The value of a field of a section header; nothing for numbers that no field has. */
inline std::optional<uint32_t> SectionFieldValue(const SectionHeader &section, uint8_t number) {
    const rules::Field *field = rules::FindField(rules::SectionFields(), number);
    if (field == nullptr)
        return std::nullopt;
    uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const uint8_t *>(&section) + field->offset, field->width);
    return value;
}

template <typename File>
bool MeetsHeader(std::span<const HeaderCondition> elements, File &file) {
    return EveryRunIsMet(
        elements, [](const auto &left, const auto &right) { return left.field == right.field; },
        [&](const HeaderCondition &e) { return MeetsValue(e.op, file.Header(e.field), e.value); });
}

template <typename File>
bool MeetsSections(std::span<const SectionCondition> elements, File &file) {
    return EveryRunIsMet(
        elements,
        [](const auto &left, const auto &right) { return left.section == right.section && left.field == right.field; },
        [&](const SectionCondition &e) { return MeetsValue(e.op, file.SectionValue(e.section, e.field), e.value); });
}

/** Whether a section is among those that a selector of names leaves open. */
inline bool IsOfClass(const SectionHeader &section, uint16_t selector) {
    const bool is_code = (section.Characteristics & pe::section_flag::kExecute) != 0;
    switch (static_cast<rules::SectionRole>(selector)) {
    case rules::SectionRole::AnyCode:
        return is_code;
    case rules::SectionRole::AnyData:
        return !is_code;
    default:
        return true;
    }
}

template <typename File>
bool MeetsSectionName(const SectionNameCondition &e, File &file) {
    const std::string_view wanted(e.name, strnlen(e.name, sizeof(e.name)));
    const std::span<const SectionHeader> sections = file.sections();
    if (rules::IsAnySection(e.section))
        return MeetsPresence(e.op, std::any_of(sections.begin(), sections.end(), [&](const SectionHeader &section) {
                                 return IsOfClass(section, e.section) && SectionName(section) == wanted;
                             }));
    const std::optional<std::size_t> section = file.SectionOf(e.section);
    return section && MeetsPresence(e.op, SectionName(sections[*section]) == wanted);
}

template <typename File>
bool MeetsSectionNames(std::span<const SectionNameCondition> elements, File &file) {
    return EveryRunIsMet(
        elements,
        [](const auto &left, const auto &right) {
            return left.section == right.section && !rules::IsAnySection(left.section);
        },
        [&](const SectionNameCondition &e) { return MeetsSectionName(e, file); });
}

template <typename File>
bool HasTrait(uint32_t trait, File &file) {
    namespace field = rules::header_field;
    const std::span<const SectionHeader> sections = file.sections();
    const auto section_has = [&](rules::SectionRole role, uint32_t characteristic) {
        const std::optional<std::size_t> section = file.SectionOf(static_cast<uint16_t>(role));
        return section && (sections[*section].Characteristics & characteristic) != 0;
    };
    switch (trait) {
    case rules::trait::kOverlay:
        return file.Header(field::kOverlaySize).value_or(0) > 0;
    case rules::trait::kEntryInLast: {
        const std::optional<std::size_t> entry = file.SectionOf(static_cast<uint16_t>(rules::SectionRole::Entry));
        return entry && *entry + 1 == sections.size();
    }
    case rules::trait::kWritableEntry:
        return section_has(rules::SectionRole::Entry, pe::section_flag::kWrite);
    case rules::trait::kExecutableLast:
        return section_has(rules::SectionRole::Last, pe::section_flag::kExecute);
    case rules::trait::kFewImports:
        return file.Header(field::kImportFunctionCount).value_or(0) <= rules::kFewImports;
    case rules::trait::kVirtualSection:
        return std::any_of(sections.begin(), sections.end(), [](const SectionHeader &section) {
            return section.SizeOfRawData == 0 && section.VirtualSize > 0;
        });
    case rules::trait::kVisualBasic:
        return file.Header(field::kVbHeaderOffset).has_value();
    case rules::trait::kNativeCode:
        return file.Header(field::kVbNativeCode).value_or(0) != 0;
    default:
        return false;
    }
}

template <typename File>
bool HasTraits(uint32_t traits, File &file) {
    for (; traits != 0; traits &= traits - 1)
        if (!HasTrait(traits & (~traits + 1), file))
            return false;
    return true;
}

} // namespace tavrik::evaluation

#endif
