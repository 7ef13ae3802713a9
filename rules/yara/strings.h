/* YARA's string definitions. */
#ifndef TAVRIK_RULES_YARA_STRINGS_H
#define TAVRIK_RULES_YARA_STRINGS_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "rules/model.h"

namespace tavrik::rules::yara {

/** A text literal in quotes. */
std::string YaraText(std::string_view text);

/** The definition of a string, quoted or in braces, with its modifiers; nothing when a file may have too many
 * occurrences of it for the engine. Zero bytes of a wide string are written out, since the `wide` modifier does not ask
 * for each of them. */
std::optional<std::string> YaraString(const StringFeature &string);

/** The bytes of the file that the string spans. */
std::size_t YaraStringLength(const StringFeature &string);

} // namespace tavrik::rules::yara

#endif
