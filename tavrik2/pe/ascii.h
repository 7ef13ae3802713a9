/* ASCII text, independent of the C library's locale. */
#ifndef TAVRIK2_PE_ASCII_H
#define TAVRIK2_PE_ASCII_H

namespace tavrik2 {

constexpr char AsciiLower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

/** True when two NUL-terminated strings are equal but for the case of ASCII letters. */
constexpr bool EqualsIgnoringCase(const char *left, const char *right) {
    for (; AsciiLower(*left) == AsciiLower(*right); ++left, ++right) {
        if (*left == '\0')
            return true;
    }
    return false;
}

} // namespace tavrik2

#endif
