#include "base/cpp_literal.h"

#include <cstdint>
#include <iterator>

#include <fmt/format.h>

namespace tavrik::base {

std::string CppEscaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (c == '"' || c == '\\' || c == '?') // two question marks could begin a trigraph
            out.append({'\\', c});
        else if (byte < ' ' || byte > '~')
            fmt::format_to(std::back_inserter(out), "\\{:03o}", byte); // always three digits: a digit may follow
        else
            out += c;
    }
    return out;
}

std::string CppLiteral(std::string_view text) {
    return '"' + CppEscaped(text) + '"';
}

} // namespace tavrik::base
