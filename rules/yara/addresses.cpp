#include "rules/yara/addresses.h"

#include <cstddef>
#include <cstdint>

#include <fmt/format.h>

#include "rules/yara/conditions.h"

namespace tavrik::rules::yara {

using fmt::format;

namespace {

constexpr std::size_t kLongestName = 255; // bytes without the NUL
constexpr unsigned kMostSections = 512;
constexpr unsigned kSectionHeaderSize = 40;

// What a section's place, 1 or more, is to be added to for the header before it.
constexpr std::string_view kTable = "uint32(0x3C) + uint16(uint32(0x3C) + 20) + 40 *";

// A field of a section by its place. The table begins 24 bytes after what kTable adds up, the first place is 1.
std::string FieldOf(std::string_view place, unsigned offset) {
    const int distance = static_cast<int>(offset) + 24 - static_cast<int>(kSectionHeaderSize);
    if (distance == 0)
        return format("uint32({} {})", kTable, place);
    return format("uint32({} {} {} {})", kTable, place, distance < 0 ? '-' : '+', distance < 0 ? -distance : distance);
}

// 1 in a section, 0 in the headers.
std::string InSection(std::string_view place) {
    return format("({} + {}) \\ {}", place, kMostSections - 1, kMostSections);
}

} // namespace

std::string IsMapped(std::string_view rva, std::string_view place) {
    const std::string begin = FieldOf(place, kVirtualAddress);
    const std::string begin_of_j = FieldOf("j", kVirtualAddress);
    const std::string table_end = format("{} {} + 24", kTable, place);
    constexpr std::string_view kCount =
        "math.min(math.min(uint16(uint32(0x3C) + 6), 512), (filesize - uint32(0x3C) - uint16(uint32(0x3C) + 20) - 24) "
        "\\ 40)"; // of whole section headers
    // The headers are searched only when no section holds the address, wherever it is in the table.
    return format(
        "({0} > 0 and {1} >= {2} and {1} < {2} + {3} and {0} <= {4} and {5} <= filesize or {0} == 0 and {1} < "
        "uint32(uint32(0x3C) + 0x54)) and not for any j in (1..{6}) : ((j < {0} or {0} == 0) and {1} >= {7} "
        "and {1} < {7} + math.max({8}, {9}))",
        place, rva, begin, FieldOf(place, kSizeOfRawData), kMostSections, table_end, kCount, begin_of_j,
        FieldOf("j", kVirtualSize), FieldOf("j", kSizeOfRawData));
}

std::string MappedOffset(std::string_view rva, std::string_view place) {
    const std::string in_section = InSection(place);
    // In the headers both reads are of the same bytes, which every PE file has.
    const std::string at = format("uint32(0x3C) + {} * uint16(uint32(0x3C) + 20) + 40 * {} + 4", in_section, place);
    return format("{0} + uint32({1}) - uint32({1} - 8 * ({2}))", rva, at, in_section);
}

std::string HasOffset(std::string_view rva) {
    return format("for any p in (0..{}) : ({} and {} < filesize)", kLastPlace, IsMapped(rva, "p"),
                  MappedOffset(rva, "p"));
}

std::string IsName(std::string_view offset) {
    return format("for any z in (0..{}) : (uint8({} + z) == 0)", kLongestName, offset);
}

std::string IsNamed(std::string_view offset, std::string_view name, NameTest test) {
    if (name.size() > kLongestName || name.find('\0') != std::string_view::npos)
        Refuse("a condition that is never met");
    Parts parts;
    const std::size_t length = name.size() + (test.is_prefix ? 0 : 1); // with the NUL
    for (std::size_t at = 0; at < length;) {
        const std::size_t width = length - at >= 4 ? 4 : length - at >= 2 ? 2 : 1;
        uint32_t value = 0;
        uint32_t case_bits = 0;
        for (std::size_t i = at; i < at + width; ++i) {
            const unsigned shift = 8 * static_cast<unsigned>(i - at);
            uint32_t byte = i < name.size() ? static_cast<uint8_t>(name[i]) : 0;
            if (const uint32_t lower = byte | 0x20; !test.is_cased && lower >= 'a' && lower <= 'z') {
                byte = lower;
                case_bits |= 0x20u << shift;
            }
            value |= byte << shift;
        }
        const std::string read = at == 0 ? format("uint{}(o)", 8 * width) : format("uint{}(o + {})", 8 * width, at);
        parts.push_back(case_bits == 0 ? format("{} == 0x{:X}", read, value)
                                       : format("{} | 0x{:X} == 0x{:X}", read, case_bits, value));
        at += width;
    }
    std::string text = parts.empty() ? "" : format("for any o in ({}) : ({})", offset, All(parts));
    if (test.is_prefix)
        text += format("{}for any z in ({}..{}) : (uint8({} + z) == 0)", text.empty() ? "" : " and ", name.size(),
                       kLongestName, offset);
    return text;
}

} // namespace tavrik::rules::yara
