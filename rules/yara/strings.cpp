#include "rules/yara/strings.h"

#include <algorithm>
#include <bitset>

#include <fmt/format.h>

namespace tavrik::rules::yara {

namespace {

constexpr uint8_t kCaseBit = 0x20;

bool IsLetter(uint8_t byte) {
    const uint8_t lower = byte | kCaseBit;
    return lower >= 'a' && lower <= 'z';
}

bool IsText(uint8_t byte) {
    return (byte >= 0x20 && byte < 0x7F) || byte == '\t' || byte == '\n' || byte == '\r';
}

bool IsWide(const StringFeature &string) {
    return (string.options & kStringWide) != 0;
}

// The engine gives up a string after a million occurrences in a file. Padding and tables can hold as many only of what
// has fewer than three bytes, or one byte throughout.
bool MayBeTooFrequent(const StringFeature &string) {
    constexpr std::size_t kFewestBytes = 3;
    const std::size_t bytes = string.bytes.size() - string.mask.count();
    std::bitset<256> values;
    for (std::size_t i = 0; i < string.bytes.size(); ++i)
        if (!string.mask[i])
            values.set(static_cast<uint8_t>(string.bytes[i]));
    return bytes < kFewestBytes || values.count() < 2;
}

std::string HexString(const StringFeature &string) {
    const bool any_case = (string.options & kStringNoCase) != 0;
    std::string text = "{";
    for (std::size_t i = 0; i < string.bytes.size(); ++i) {
        const auto byte = static_cast<uint8_t>(string.bytes[i]);
        if (string.mask[i])
            text += " ??";
        else if (any_case && IsLetter(byte))
            text += fmt::format(" ({:02X}|{:02X})", byte & ~kCaseBit, byte | kCaseBit);
        else
            text += fmt::format(" {:02X}", byte);
        if (IsWide(string))
            text += " 00";
    }
    return text + " }";
}

} // namespace

std::string YaraText(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (c == '"' || c == '\\')
            quoted += {'\\', c};
        else if (byte >= 0x20 && byte < 0x7F)
            quoted += c;
        else
            quoted += fmt::format("\\x{:02X}", byte);
    }
    return quoted + '"';
}

std::optional<std::string> YaraString(const StringFeature &string) {
    if (MayBeTooFrequent(string))
        return std::nullopt;
    const bool is_text = std::ranges::all_of(string.bytes, [](char c) { return IsText(static_cast<uint8_t>(c)); });
    const bool any_case = (string.options & kStringNoCase) != 0;
    if (string.mask.any() || (!is_text && !any_case))
        return HexString(string);
    std::string bytes;
    for (const char c : string.bytes) {
        bytes += c;
        if (IsWide(string))
            bytes += '\0';
    }
    return YaraText(bytes) + (any_case ? " nocase" : "");
}

std::size_t YaraStringLength(const StringFeature &string) {
    return string.bytes.size() * (IsWide(string) ? 2 : 1);
}

} // namespace tavrik::rules::yara
