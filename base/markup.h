/* Text in XML and HTML. */
#ifndef TAVRIK_BASE_MARKUP_H
#define TAVRIK_BASE_MARKUP_H

#include <string>
#include <string_view>

namespace tavrik::base {

/** A text of any bytes as character data or within a quoted attribute: made printable, with the characters that markup
 * gives a meaning as references. */
std::string MarkupText(std::string_view text);

} // namespace tavrik::base

#endif
