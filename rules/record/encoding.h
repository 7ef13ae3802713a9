/* The encoding of a rule as a binary record: for each element, and for the record itself, which values in which order.
 * A coder goes through it in either direction: the record builder writes memory, the emitter writes source, the reader
 * fills rules. What a coder has to offer:
 *
 *     Values(x...)           integers and enumerations in their own width, little-endian
 *     FixedText<width>(s)    a text in a field of its own, padded with NULs, at least one of them
 *     Zeros<width>()         bytes that are 0
 *     Text(s)                a pointer to a text that ends at a NUL
 *     ValueBytes(bits)       a 64-bit value as eight bytes
 *     MaskedBytes(mask, s)   16 bytes of mask, a pointer to the string's bytes, their number in one byte
 *     SectionText(name, tail) a pointer to eight bytes, or null, and the name's length in one byte
 *     FeatureFlags(rule)     the byte feature_flags
 *     List(tag, list)        a pointer to the elements, or null, and their number in four bytes */
#ifndef TAVRIK_RULES_RECORD_ENCODING_H
#define TAVRIK_RULES_RECORD_ENCODING_H

#include <bitset>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "rules/lists.h"
#include "rules/model.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::rules::record {

/** Added to every byte of a feature string in stored form. */
inline constexpr uint8_t kStoredShift = 3;

/** The bytes that a string_section points to. */
inline constexpr std::size_t kSectionTextBytes = 8;

/** The bytes of a string feature's mask. */
inline constexpr std::size_t kMaskBytes = kMaxStringLength / 8;

inline constexpr std::size_t kResourceNameBytes = kMaxResourceName + 1;
inline constexpr std::size_t kResourceZeroBytes = 32;

/** The binary type of a list's elements. */
template <Item kItem>
struct RecordElement;

#define TAVRIK_LIST(member, Element, item, word, flag)                                                                 \
    template <>                                                                                                        \
    struct RecordElement<Item::item> {                                                                                 \
        using Type = ::Element;                                                                                        \
    };
#include "rules/lists.def"

/** A rule or element, const or not. */
template <typename T, typename Model>
concept Like = std::same_as<std::remove_const_t<T>, Model>;

void Code(auto &coder, Like<HeaderCondition> auto &e) {
    coder.Values(e.field, e.op, e.value);
}

void Code(auto &coder, Like<SectionCondition> auto &e) {
    coder.Values(e.section, e.field, e.op, e.value);
}

void Code(auto &coder, Like<SectionNameCondition> auto &e) {
    coder.Values(e.section, e.op);
    coder.template FixedText<kMaxSectionName + 1>(e.name);
}

void Code(auto &coder, Like<StringFeature> auto &e) {
    coder.MaskedBytes(e.mask, e.bytes);
    coder.Values(e.anchor, e.window_start, e.window_length, e.kind, e.index);
    coder.template Zeros<1>();
    coder.SectionText(e.section_name, e.section_tail);
    coder.Values(e.options);
    coder.template Zeros<1>();
    coder.Values(e.drift);
}

void Code(auto &coder, Like<IndexedCondition> auto &e) {
    coder.Values(e.index, e.field, e.op, e.value);
}

void Code(auto &coder, Like<ImportModule> auto &e) {
    coder.Values(e.index, e.option, e.op);
    coder.Text(e.name);
}

void Code(auto &coder, Like<ImportFunction> auto &e) {
    coder.Values(e.index, e.op);
    coder.Text(e.name);
}

void Code(auto &coder, Like<ExportName> auto &e) {
    coder.Values(e.op);
    coder.Text(e.name);
}

void Code(auto &coder, Like<ResourceEntry> auto &e) {
    coder.Values(e.type, e.id);
    coder.template FixedText<kResourceNameBytes>(e.name);
    coder.Values(e.language);
    coder.template Zeros<kResourceZeroBytes>();
    coder.Values(e.crc32);
}

void Code(auto &coder, Like<ResourceTypeEntry> auto &e) {
    coder.Values(e.number);
    coder.template FixedText<kResourceNameBytes>(e.name);
    coder.Values(e.language);
    coder.template Zeros<kResourceZeroBytes>();
    coder.Values(e.level, e.absent);
}

void Code(auto &coder, Like<ResourceString> auto &e) {
    coder.Values(e.type, e.id);
    coder.template FixedText<kResourceNameBytes>(e.name);
    coder.Values(e.language);
    coder.template Zeros<kResourceZeroBytes>();
    coder.Values(e.key);
    coder.Text(e.text);
}

void Code(auto &coder, Like<MeasureCondition> auto &e) {
    coder.Values(e.region, e.measure, e.length, e.index, e.op);
    coder.ValueBytes(e.bits);
}

void Code(auto &coder, Like<SecondaryCondition> auto &e) {
    coder.Values(e.index, e.field, e.op, e.value);
}

void Code(auto &coder, Like<ObjectName> auto &e) {
    coder.Values(e.index, e.option, e.op);
    coder.Text(e.name);
}

void Code(auto &coder, Like<MemberName> auto &e) {
    coder.Values(e.index, e.option, e.op);
    coder.Text(e.name);
}

void Code(auto &coder, Like<Rule> auto &rule) {
    const auto code_list = [&](auto tag, auto &list) {
        coder.List(tag, list);
        if (tag.kItem != Item::Strings)
            return;
        // The single values follow the strings.
        coder.Text(rule.expression);
        coder.Values(rule.rule_id);
        coder.template FixedText<kMaxDetectionName + 1>(rule.detection_name);
        coder.FeatureFlags(rule);
        coder.Values(rule.attribute_a, rule.attribute_b);
    };
    EachList(code_list, rule);
    coder.Values(rule.reserved);
}

/** Throws std::invalid_argument when a text and a NUL do not fit a field of `width` bytes. */
void CheckWidth(std::string_view text, std::size_t width);

/** The mask as the record has it: position i at bit i % 8 of byte i / 8. Positions beyond `length` are left out. */
void PackMask(const std::bitset<kMaxStringLength> &mask, std::size_t length, uint8_t (&packed)[kMaskBytes]);

/** The eight bytes that a string_section points to: the name, what follows it, and NULs. */
std::string SectionBytes(std::string_view name, std::string_view tail);

} // namespace tavrik::rules::record

#endif
