/* Single characters of names: letter case of ASCII, what shows, and where characters of UTF-8 begin. */
#ifndef TAVRIK_BASE_CHARACTERS_H
#define TAVRIK_BASE_CHARACTERS_H

#include <algorithm>
#include <string>
#include <string_view>

namespace tavrik::base {

/** An ASCII letter in lower case; any other byte as it is. */
constexpr char LowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/** A text with its ASCII letters in lower case. */
inline std::string LowerAscii(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char c) { return LowerAscii(c); });
    return lower;
}

/** Whether two texts are equal but for the case of ASCII letters. */
constexpr bool IsEqualIgnoringCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, [](char l, char r) { return LowerAscii(l) == LowerAscii(r); });
}

/** Whether a byte is an ASCII character that shows, a blank included. */
constexpr bool IsPrintableAscii(char byte) {
    return byte >= ' ' && byte <= '~';
}

/** Whether a byte is within a UTF-8 character, after its first byte. */
constexpr bool IsUtf8Continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

} // namespace tavrik::base

#endif
