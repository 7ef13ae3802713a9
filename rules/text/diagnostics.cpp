#include "rules/text/diagnostics.h"

#include <algorithm>

#include "base/characters.h"

namespace tavrik::rules::text {

namespace {

constexpr std::size_t kTabWidth = 4;
constexpr std::size_t kLongestLine = 160; // of the source, in a rendering

std::string_view LineAt(std::string_view text, std::size_t offset) {
    const std::size_t before = offset == 0 ? std::string_view::npos : text.rfind('\n', offset - 1);
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    std::string_view line = text.substr(begin, text.find('\n', begin) - begin);
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

// A piece of a line as a terminal may show it.
std::string Shown(std::string_view piece) {
    std::string shown;
    for (const char c : piece) {
        if (c == '\t')
            shown.append(kTabWidth, ' ');
        else
            shown += static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
    }
    return shown;
}

// Columns on the screen: bytes of a UTF-8 sequence after its first do not count.
std::size_t Width(std::string_view shown) {
    return static_cast<std::size_t>(std::ranges::count_if(shown, [](char c) { return !base::IsUtf8Continuation(c); }));
}

constexpr Code kCodes[] = {
#define TAVRIK_DIAGNOSTIC(code) Code::code,
#include "rules/text/diagnostic_codes.def"
#undef TAVRIK_DIAGNOSTIC
};

constexpr std::string_view kCodeTexts[] = {
#define TAVRIK_DIAGNOSTIC(code) #code,
#include "rules/text/diagnostic_codes.def"
#undef TAVRIK_DIAGNOSTIC
};

// Whether a diagnostic is about the file as a whole, whose lines say nothing then.
bool IsAboutFile(Code code) {
    return code == Code::E005 || code == Code::E006 || code == Code::E007 || code == Code::W514;
}

// The line of a place with carets below it.
std::string Excerpt(std::string_view text, const Diagnostic &diagnostic, std::size_t offset, const Place &place) {
    // Of a very long line the piece around the place.
    std::string_view line = LineAt(text, offset);
    std::size_t column = std::min(place.column - 1, line.size());
    if (line.size() > kLongestLine) {
        const std::size_t skipped = column > kLongestLine / 2 ? column - kLongestLine / 2 : 0;
        line = line.substr(skipped, kLongestLine);
        column -= skipped;
    }
    const std::string number = std::to_string(place.line);
    const std::size_t marked = std::min(diagnostic.length, line.size() - column);
    const std::string carets(std::max<std::size_t>(Width(Shown(line.substr(column, marked))), 1), '^');
    return " " + number + " | " + Shown(line) + "\n " + std::string(number.size(), ' ') + " | " +
           std::string(Width(Shown(line.substr(0, column))), ' ') + carets + "\n";
}

} // namespace

std::span<const Code> Codes() {
    return kCodes;
}

std::string_view CodeText(Code code) {
    return kCodeTexts[static_cast<std::size_t>(code)];
}

Place PlaceOf(std::string_view text, std::size_t offset) {
    offset = std::min(offset, text.size());
    const std::string_view before = text.substr(0, offset);
    const std::size_t line = static_cast<std::size_t>(std::ranges::count(before, '\n')) + 1;
    const std::size_t last_end = before.rfind('\n');
    return {line, last_end == std::string_view::npos ? offset + 1 : offset - last_end};
}

std::string Render(const Source &source, const Diagnostic &diagnostic) {
    const std::string_view text = source.text;
    const std::size_t offset = std::min(diagnostic.offset, text.size());
    const Place place = PlaceOf(text, offset);
    const std::string_view severity = diagnostic.severity == Severity::Error ? "error" : "warning";

    std::string out = source.name + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " +
                      std::string(severity) + "[" + std::string(CodeText(diagnostic.code)) +
                      "]: " + diagnostic.message + "\n";

    if (!IsAboutFile(diagnostic.code))
        out += Excerpt(text, diagnostic, offset, place);
    if (!diagnostic.help.empty())
        out += " " + std::string(std::to_string(place.line).size(), ' ') + " = " + diagnostic.help + "\n";
    return out;
}

bool HasErrors(const std::vector<Diagnostic> &diagnostics) {
    return std::ranges::any_of(diagnostics, [](const Diagnostic &d) { return d.severity == Severity::Error; });
}

} // namespace tavrik::rules::text
