#include "rules/yara/conditions.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "pe/format.h"
#include "rules/names.h"

namespace tavrik::rules::yara {

using fmt::format;

void Refuse(std::string reason) {
    throw NotExpressible{std::move(reason)};
}

std::string All(const Parts &parts) {
    return format("{}", fmt::join(parts, " and "));
}

std::string Any(const Parts &parts) {
    return parts.size() == 1 ? parts.front() : format("({})", fmt::join(parts, " or "));
}

std::string Compared(std::string_view value, Operator op, uint32_t wanted) {
    if (op == Operator::HasBits)
        return format("({0}) & 0x{1:X} == 0x{1:X}", value, wanted);
    if (op < Operator::Equal || op > Operator::HasBits)
        Refuse("an operator that is never met");
    return format("{} {} 0x{:X}", value, OperatorText(op), wanted);
}

std::string Test::On(std::string_view value) const {
    Parts parts;
    for (const uint32_t wanted : values)
        parts.push_back(Compared(value, op, wanted));
    return Any(parts);
}

bool Test::Accepts(uint32_t value) const {
    return std::ranges::any_of(values, [&](uint32_t wanted) {
        switch (op) {
        case Operator::Equal:
            return value == wanted;
        case Operator::NotEqual:
            return value != wanted;
        case Operator::Less:
            return value < wanted;
        case Operator::Greater:
            return value > wanted;
        case Operator::AtMost:
            return value <= wanted;
        case Operator::AtLeast:
            return value >= wanted;
        case Operator::HasBits:
            return (value & wanted) == wanted;
        }
        return false;
    });
}

std::string TestByBounds(const Test &test, const std::function<std::string(uint64_t)> &at_least) {
    Parts parts;
    for (const uint64_t value : test.values) {
        const std::string from = at_least(value);
        const std::string above = at_least(value + 1);
        switch (test.op) {
        case Operator::Equal:
            parts.push_back(format("({} and not ({}))", from, above));
            break;
        case Operator::NotEqual:
            parts.push_back(format("(not ({}) or {})", from, above));
            break;
        case Operator::Less:
            parts.push_back(format("not ({})", from));
            break;
        case Operator::Greater:
            parts.push_back(above);
            break;
        case Operator::AtMost:
            parts.push_back(format("not ({})", above));
            break;
        case Operator::AtLeast:
            parts.push_back(from);
            break;
        default:
            Refuse("bits of a value that is compared by its bounds");
        }
    }
    return Any(parts);
}

Span SpanOf(std::string begin, std::string end) {
    std::string cut = format("math.min({}, filesize)", end);
    return {std::move(begin), std::move(end), std::move(cut)};
}

std::string HeaderOf(std::string_view index) {
    constexpr unsigned kSectionHeaderSize = 40; // bytes
    return format("t + {} * {}", kSectionHeaderSize, index);
}

std::string SectionField(std::string_view header, unsigned offset) {
    return format("uint32({} + {})", header, offset);
}

std::string Named(std::string_view header, std::string_view name) {
    const std::size_t length = std::min(name.size() + 1, kMaxSectionName); // with the NUL that ends it
    if (length == 1)
        return format("uint8({}) == 0", header);
    Parts parts;
    for (std::size_t word = 0; word < length; word += 4) {
        uint32_t value = 0;
        uint32_t mask = 0;
        for (std::size_t i = word; i < std::min(word + 4, length); ++i) {
            const unsigned shift = 8 * static_cast<unsigned>(i - word);
            mask |= 0xFFu << shift;
            value |= static_cast<uint32_t>(i < name.size() ? static_cast<uint8_t>(name[i]) : 0) << shift;
        }
        const std::string read = word == 0 ? format("uint32({})", header) : format("uint32({} + {})", header, word);
        parts.push_back(mask == 0xFFFFFFFF ? format("{} == 0x{:X}", read, value)
                                           : format("{} & 0x{:X} == 0x{:X}", read, mask, value));
    }
    return parts.size() == 1 ? parts[0] : "(" + All(parts) + ")";
}

std::string Holds(std::string_view header, std::string_view rva) {
    return format("{0} >= {1} and ({0} < {1} + {2} or {0} < {1} + {3})", rva, SectionField(header, kVirtualAddress),
                  SectionField(header, kVirtualSize), SectionField(header, kSizeOfRawData));
}

Span RawData(std::string_view header) {
    const std::string begin = SectionField(header, kPointerToRawData);
    return SpanOf(begin, begin + " + " + SectionField(header, kSizeOfRawData));
}

std::string HasDescriptors(std::string_view offset, uint64_t count) {
    using namespace pe::import_descriptor;
    return format("{0} + {1} <= filesize and not for any d in (0..{2}) : (uint32({0} + d * {3} + {4}) == 0)", offset,
                  kSize * count, count - 1, kSize, 4 * kName);
}

} // namespace tavrik::rules::yara
