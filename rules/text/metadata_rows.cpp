// Rows of the block meta.
#include <algorithm>
#include <chrono>
#include <string_view>

#include "rules/text/rows.h"
#include "rules/text/suggestions.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

bool IsDigits(std::string_view text, std::size_t length) {
    return text.size() == length && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// A day of the calendar, as 2026-01-31.
bool IsDate(std::string_view text) {
    if (text.size() != 10 || text[4] != '-' || text[7] != '-' || !IsDigits(text.substr(0, 4), 4) ||
        !IsDigits(text.substr(5, 2), 2) || !IsDigits(text.substr(8), 2))
        return false;
    const auto number = [text](std::size_t at, std::size_t length) {
        return std::stoi(std::string(text.substr(at, length)));
    };
    return std::chrono::year_month_day(std::chrono::year(number(0, 4)),
                                       std::chrono::month(static_cast<unsigned>(number(5, 2))),
                                       std::chrono::day(static_cast<unsigned>(number(8, 2))))
        .ok();
}

// The hexadecimal digits of an MD5, SHA-1 or SHA-256.
bool IsDigest(std::string_view text) {
    constexpr std::size_t kLengths[] = {32, 40, 64};
    return std::ranges::find(kLengths, text.size()) != std::end(kLengths) &&
           text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

} // namespace

void ParseRow(TokenCursor &cursor, std::vector<MetadataEntry> &list, std::size_t begin) {
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("author, date, reference, description or sample");
    const auto number = NumberOf(MetadataKeys(), cursor.token().text);
    if (!number)
        cursor.Report(
            Code::E205, cursor.offset(), cursor.length(), "there is no metadata '" + cursor.Text() + "'",
            SuggestFrom(MetadataKeys(), cursor.token().text, [](const NamedNumber &name) { return name.name; }));
    const auto key = static_cast<MetadataKey>(number.value_or(0));
    if ((key == MetadataKey::Date || key == MetadataKey::Description) &&
        std::ranges::find(list, key, &MetadataEntry::key) != list.end())
        cursor.Report(Code::E401, begin, cursor.length(), "this rule has '" + cursor.Text() + "' already",
                      "authors, references and samples alone may be several");
    cursor.Advance();
    const Written<std::string> text = ExpectText(cursor, "a text");
    if (key == MetadataKey::Date && !IsDate(text.value))
        cursor.Report(Code::E313, text.offset, text.length, "this is not a date", "a date is written as 2026-01-31");
    if (key == MetadataKey::Sample && !IsDigest(text.value))
        cursor.Report(Code::E313, text.offset, text.length, "this is not a digest",
                      "a sample is named by its MD5, SHA-1 or SHA-256 in hexadecimal digits");
    list.push_back({key, text.value});
}

} // namespace tavrik::rules::text
