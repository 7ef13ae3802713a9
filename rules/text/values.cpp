#include "rules/text/values.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "rules/text/suggestions.h"

namespace tavrik::rules::text {

namespace {

constexpr double kLargestEntropy = 8; // bits a byte

// The byte of the escape \xHH that begins at `at` in a text's inside; nothing when there is no such escape.
std::optional<char> HexEscape(std::string_view inside, std::size_t at) {
    uint8_t byte = 0;
    if (at + 3 >= inside.size() || inside[at + 1] != 'x' ||
        std::from_chars(&inside[at] + 2, &inside[at] + 4, byte, 16).ptr != &inside[at] + 4)
        return std::nullopt;
    return static_cast<char>(byte);
}

// The byte that a backslash and this character denote; nothing when there is no such escape.
std::optional<char> ShortEscape(std::string_view inside, std::size_t at) {
    constexpr std::string_view kEscapes = "\"\\nrt";
    constexpr std::string_view kMeanings = "\"\\\n\r\t";
    const std::size_t escape = at + 1 < inside.size() ? kEscapes.find(inside[at + 1]) : std::string_view::npos;
    return escape == std::string_view::npos ? std::nullopt : std::optional(kMeanings[escape]);
}

} // namespace

Written<uint64_t> ExpectNumber(TokenCursor &cursor, uint64_t largest, std::string_view what) {
    if (!cursor.At(TokenKind::Number))
        cursor.Expected(what, cursor.At(TokenKind::Real) ? "fractions and signs are for entropies alone" : "");
    Written<uint64_t> number{0, cursor.offset(), cursor.length()};
    std::string_view digits = cursor.token().text;
    const bool hex = digits.starts_with("0x");
    if (hex)
        digits.remove_prefix(2);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number.value, hex ? 16 : 10);
    const bool all_read = !digits.empty() && end == digits.data() + digits.size();
    if (!all_read && error != std::errc::result_out_of_range)
        cursor.Report(Code::E102, number.offset, number.length, "this is not a number",
                      "numbers are decimal (500) or hexadecimal (0x1F4)");
    else if (error == std::errc::result_out_of_range || number.value > largest)
        cursor.Report(Code::E301, number.offset, number.length,
                      std::string(what) + " is at most " + std::to_string(largest));
    cursor.Advance();
    number.value = std::min(number.value, largest);
    return number;
}

double ExpectReal(TokenCursor &cursor) {
    if (!cursor.At(TokenKind::Number) && !cursor.At(TokenKind::Real))
        cursor.Expected("an entropy");
    double value = 0;
    const std::string_view digits = cursor.token().text;
    const char *const last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), last, value, std::chars_format::fixed);
    if (end != last || error != std::errc{})
        cursor.Report(Code::E102, cursor.offset(), cursor.length(), "this is not a number",
                      "an entropy is written as 7.25");
    else if (value < 0 || value > kLargestEntropy)
        cursor.Warn(Code::W501, cursor.offset(), cursor.length(), "no entropy is outside 0 to 8");
    cursor.Advance();
    return value;
}

Written<std::string> ExpectText(TokenCursor &cursor, std::string_view what) {
    if (!cursor.At(TokenKind::Text))
        cursor.Expected(what, "text is written in double quotes");
    Written<std::string> text{"", cursor.offset(), cursor.length()};
    const std::string_view inside = cursor.token().text.substr(1, cursor.length() - 2);
    for (std::size_t i = 0; i < inside.size(); ++i) {
        if (inside[i] != '\\') {
            text.value += inside[i];
        } else if (const auto byte = HexEscape(inside, i)) {
            text.value += *byte;
            i += 3;
        } else {
            if (const auto meaning = ShortEscape(inside, i))
                text.value += *meaning;
            else
                cursor.Report(Code::E004, text.offset + 1 + i, 2, "there is no such escape",
                              "the escapes are \\\" \\\\ \\n \\r \\t and \\xHH");
            ++i;
        }
    }
    cursor.Advance();
    return text;
}

std::string ExpectName(TokenCursor &cursor, std::string_view what, std::size_t longest) {
    const Written<std::string> text = ExpectText(cursor, what);
    if (text.value.find('\0') != std::string::npos)
        cursor.Report(Code::E302, text.offset, text.length, std::string(what) + " ends at a NUL and cannot hold one");
    if (text.value.size() > longest)
        cursor.Report(Code::E303, text.offset, text.length,
                      std::string(what) + " has at most " + std::to_string(longest) + " characters; this has " +
                          std::to_string(text.value.size()));
    return text.value;
}

uint32_t LookUpNumber(TokenCursor &cursor, std::span<const NamedNumber> names, std::string_view what) {
    if (!cursor.At(TokenKind::Identifier))
        return Take<uint32_t>(cursor, what);
    const auto number = NumberOf(names, cursor.token().text);
    if (!number)
        cursor.Report(Code::E201, cursor.offset(), cursor.length(),
                      "'" + cursor.Text() + "' is not " + std::string(what),
                      SuggestFrom(names, cursor.token().text, [](const NamedNumber &name) { return name.name; }));
    cursor.Advance();
    return number.value_or(0);
}

uint16_t ParsePosition(TokenCursor &cursor, uint64_t largest, std::string_view what) {
    cursor.ExpectSymbol("[");
    const auto position = static_cast<uint16_t>(ExpectNumber(cursor, largest, what).value);
    cursor.ExpectSymbol("]");
    return position;
}

const Region *LookUpRegion(TokenCursor &cursor, const Token &name) {
    const Region *region = FindRegion(name.text, RegionArgument::None);
    if (region == nullptr)
        region = FindRegion(name.text, RegionArgument::Index);
    if (region == nullptr)
        cursor.Report(Code::E204, name.offset, name.text.size(), "there is no region '" + std::string(name.text) + "'",
                      SuggestFrom(Regions(), name.text, [](const Region &each) { return each.name; }));
    return region;
}

} // namespace tavrik::rules::text
