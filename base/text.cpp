#include "base/text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <system_error>

#include <fmt/format.h>

#include "base/characters.h"

namespace tavrik::base {

namespace {

// A character of a UTF-8 text.
struct Character {
    uint32_t code;
    std::size_t length; // in bytes; 0 when the bytes are not valid UTF-8
};

constexpr Character kInvalid = {0, 0};

// By length in bytes, the smallest code that needs it: overlong forms are invalid.
constexpr uint32_t kSmallestOfLength[] = {0, 0, 0x80, 0x800, 0x10000};

Character Decode(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC0 || lead > 0xF7 || text.size() < length)
        return kInvalid;
    uint32_t code = lead & (0x7Fu >> length);
    for (std::size_t index = 1; index < length; ++index) {
        if (!IsUtf8Continuation(text[index]))
            return kInvalid;
        code = code << 6 | (static_cast<uint8_t>(text[index]) & 0x3Fu);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < kSmallestOfLength[length] || code > 0x10FFFF || surrogate ? kInvalid : Character{code, length};
}

bool IsShown(uint32_t code) {
    const bool control = code < 0x20 || (code >= 0x7F && code <= 0x9F);
    const bool line_end = code == 0x2028 || code == 0x2029;
    const bool direction = code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
                           (code >= 0x2066 && code <= 0x2069);
    return !control && !line_end && !direction;
}

} // namespace

std::string PathText(const std::filesystem::path &path) {
    try {
        const std::u8string text = path.u8string();
        return {text.begin(), text.end()};
    } catch (const std::system_error &) {
        // A name that the system accepts and UTF-8 cannot represent.
        std::string text;
        for (const auto unit : path.native())
            text += static_cast<uint32_t>(unit) < 0x80 ? static_cast<char>(unit) : '?';
        return text;
    }
}

std::filesystem::path PathOf(const std::string &text) {
    return std::u8string(text.begin(), text.end());
}

std::string Printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const Character character = Decode(text);
        const std::size_t length = character.length == 0 ? 1 : character.length;
        if (character.length != 0 && IsShown(character.code))
            shown += text.substr(0, length);
        else
            for (const char byte : text.substr(0, length))
                fmt::format_to(std::back_inserter(shown), "\\x{:02x}", static_cast<uint8_t>(byte));
        text.remove_prefix(length);
    }
    return shown;
}

std::string PrintablePath(const std::filesystem::path &path) {
    return Printable(PathText(path));
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = Decode(text).length;
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string Base64(std::string_view bytes) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
        uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index)
            group = group << 8 | (index < bytes.size() ? static_cast<uint8_t>(bytes[index]) : 0u);
        for (std::size_t index = 0; index < 4; ++index)
            text += index <= bytes.size() ? kDigits[group >> (18 - 6 * index) & 63] : '=';
    }
    return text;
}

std::string CountText(uint64_t count, std::string_view one) {
    return fmt::format("{} {}{}", count, one, count == 1 ? "" : "s");
}

} // namespace tavrik::base
