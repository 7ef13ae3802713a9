/* Errors and warnings about a text of rules. */
#ifndef TAVRIK_RULES_TEXT_DIAGNOSTICS_H
#define TAVRIK_RULES_TEXT_DIAGNOSTICS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavrik::rules::text {

enum class Severity : uint8_t { Error, Warning };

/** The stable code of each kind of diagnostic. */
enum class Code : uint8_t {
#define TAVRIK_DIAGNOSTIC(code) code,
#include "rules/text/diagnostic_codes.def"
#undef TAVRIK_DIAGNOSTIC
};

/** All codes in ascending order, and the text of one, such as "E101". */
std::span<const Code> Codes();
std::string_view CodeText(Code code);

/** One finding in a text. Offsets and lengths are bytes; a length of 0 points between two bytes. */
struct Diagnostic {
    Severity severity = Severity::Error;
    Code code{};
    std::size_t offset = 0;
    std::size_t length = 0;
    std::string message; // what is wrong
    std::string help;    // what was expected or what to do; may be empty
};

/** The most errors, and the most warnings, that are reported for one text: one with more is hardly a rule file. */
inline constexpr std::size_t kMaxErrors = 200;

/** A text and where it came from. */
struct Source {
    std::string name; // of the file, as it is shown
    std::string text;
};

/** A place in a text, both counted from 1; the column counts bytes. */
struct Place {
    std::size_t line;
    std::size_t column;
};

Place PlaceOf(std::string_view text, std::size_t offset);

/** The diagnostic as it is printed: file, line, column, code and message, the line itself with a caret below, and the
 * help. Diagnostics about a file as a whole (E005, E006, E007, W514) have no such line. Ends with a line feed. Control
 * characters of the source are shown as '?'. */
std::string Render(const Source &source, const Diagnostic &diagnostic);

/** True when one of them is an error. */
bool HasErrors(const std::vector<Diagnostic> &diagnostics);

} // namespace tavrik::rules::text

#endif
