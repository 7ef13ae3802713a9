#include "base/markup.h"

#include "base/text.h"

namespace tavrik::base {

std::string MarkupText(std::string_view text) {
    std::string markup;
    for (const char c : Printable(text))
        switch (c) {
        case '&':
            markup += "&amp;";
            break;
        case '<':
            markup += "&lt;";
            break;
        case '>':
            markup += "&gt;";
            break;
        case '"':
            markup += "&quot;";
            break;
        case '\'':
            markup += "&#39;";
            break;
        default:
            markup += c;
        }
    return markup;
}

} // namespace tavrik::base
