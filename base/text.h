/* File names, bytes and counts as text that is safe to print. */
#ifndef TAVRIK_BASE_TEXT_H
#define TAVRIK_BASE_TEXT_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace tavrik::base {

/** The text of a path: UTF-8 on Windows, elsewhere its bytes. */
std::string PathText(const std::filesystem::path &path);

/** The path of that text: UTF-8 on Windows, elsewhere any bytes. */
std::filesystem::path PathOf(const std::string &text);

/** A text for a terminal or a log: control characters, characters that change the direction of writing and bytes that
 * are not valid UTF-8 become \xNN for each of their bytes. */
std::string Printable(std::string_view text);
std::string PrintablePath(const std::filesystem::path &path);

/** Whether the whole text is valid UTF-8. */
bool IsUtf8(std::string_view text);

/** Bytes in base64 (RFC 4648), padded. */
std::string Base64(std::string_view bytes);

/** A count with its noun, of which `one` is the singular: "1 file", "2 files". */
std::string CountText(uint64_t count, std::string_view one);

} // namespace tavrik::base

#endif
