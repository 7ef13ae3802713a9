/* Text of other encodings as UTF-8. */
#ifndef TAVRIK_BASE_UTF8_H
#define TAVRIK_BASE_UTF8_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavrik::base {

/** Appends one character, a code point up to 0x10FFFF. */
void AppendUtf8(std::string &text, uint32_t code);

/** UTF-8 of a UTF-16 text up to its first NUL; nothing when it has an unpaired surrogate. */
std::optional<std::string> Utf8Of(std::u16string_view text);

/** The same with U+FFFD for each unpaired surrogate. */
std::string LossyUtf8Of(std::u16string_view text);

/** Any bytes with U+FFFD for each longest run of them that begins a character of UTF-8 and does not end it. */
std::string LossyUtf8(std::string_view bytes);

/** UTF-8 of a text in Windows-1252 up to its first NUL. */
std::string Utf8OfWindows1252(std::string_view text);

} // namespace tavrik::base

#endif
