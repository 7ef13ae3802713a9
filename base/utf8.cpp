#include "base/utf8.h"

#include <array>

namespace tavrik::base {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

// Windows-1252 from 0x80 to 0x9F; the five bytes without a character are those of ISO 8859-1. Other bytes are code
// points.
constexpr std::array<uint16_t, 32> kWindows1252 = {0x20AC, 0x81,   0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x8D,   0x017D, 0x8F,
                                                   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x9D,   0x017E, 0x0178};

// Takes the next character of `text` from `place` on; nothing for an unpaired surrogate.
std::optional<uint32_t> TakeCharacter(std::u16string_view text, std::size_t &place) {
    const uint32_t first = text[place++];
    if (first < 0xD800 || first > 0xDFFF)
        return first;
    if (first > 0xDBFF || place == text.size() || text[place] < 0xDC00 || text[place] > 0xDFFF)
        return std::nullopt;
    return 0x10000 + ((first - 0xD800) << 10) + (text[place++] - 0xDC00u);
}

// What a decoder takes at once from the beginning of a text that is not empty: a character, or bytes that begin one.
struct Part {
    std::size_t length;
    bool is_character;
};

Part FirstPart(std::string_view text) {
    const auto lead = static_cast<uint8_t>(text[0]);
    if (lead < 0x80)
        return {1, true};
    if (lead < 0xC2 || lead > 0xF4)
        return {1, false};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    // Of the second byte; less than any continuation where others would be overlong, surrogates or above U+10FFFF.
    uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t index = 1; index < length; ++index) {
        if (index == text.size())
            return {index, false};
        const auto byte = static_cast<uint8_t>(text[index]);
        if (byte < lowest || byte > highest)
            return {index, false};
        lowest = 0x80;
        highest = 0xBF;
    }
    return {length, true};
}

} // namespace

void AppendUtf8(std::string &text, uint32_t code) {
    const auto add = [&text](uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | code >> 6);
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | code >> 12);
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | code >> 18);
        add(0x80 | (code >> 12 & 0x3F));
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

std::optional<std::string> Utf8Of(std::u16string_view text) {
    text = text.substr(0, text.find(u'\0'));
    std::string out;
    for (std::size_t place = 0; place < text.size();) {
        const std::optional<uint32_t> code = TakeCharacter(text, place);
        if (!code)
            return std::nullopt;
        AppendUtf8(out, *code);
    }
    return out;
}

std::string LossyUtf8Of(std::u16string_view text) {
    text = text.substr(0, text.find(u'\0'));
    std::string out;
    for (std::size_t place = 0; place < text.size();)
        AppendUtf8(out, TakeCharacter(text, place).value_or(kReplacement));
    return out;
}

std::string LossyUtf8(std::string_view bytes) {
    std::string out;
    while (!bytes.empty()) {
        const Part part = FirstPart(bytes);
        if (part.is_character)
            out += bytes.substr(0, part.length);
        else
            AppendUtf8(out, kReplacement);
        bytes.remove_prefix(part.length);
    }
    return out;
}

std::string Utf8OfWindows1252(std::string_view text) {
    std::string out;
    for (const char character : text.substr(0, text.find('\0'))) {
        const auto byte = static_cast<uint8_t>(character);
        AppendUtf8(out, byte >= 0x80 && byte < 0xA0 ? kWindows1252[byte - 0x80u] : byte);
    }
    return out;
}

} // namespace tavrik::base
