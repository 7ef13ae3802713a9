/* Texts in generated C++ source. */
#ifndef TAVRIK_BASE_CPP_LITERAL_H
#define TAVRIK_BASE_CPP_LITERAL_H

#include <string>
#include <string_view>

namespace tavrik::base {

/** What a C++ string literal has between its quotes to mean exactly these bytes, whatever follows it in the literal. */
std::string CppEscaped(std::string_view text);

/** A C++ string literal. */
std::string CppLiteral(std::string_view text);

} // namespace tavrik::base

#endif
