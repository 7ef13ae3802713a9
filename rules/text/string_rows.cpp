// Rows of the block strings.
#include <algorithm>
#include <charconv>
#include <string>

#include "rules/text/rows.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

constexpr uint64_t kLargestWindow = UINT16_MAX; // positions

// ---- Hex strings ---------------------------------------------------------------------------------------------------

// Reports a mistake between the braces of a hex string and skips to their end.
[[noreturn]] void ExpectedInHexString(TokenCursor &cursor, std::string_view what) {
    try {
        cursor.Expected(what);
    } catch (const Unreadable &) {
        while (!cursor.AtEnd() && !cursor.AtSymbol("}") && !cursor.AtRuleStart())
            cursor.Advance();
        cursor.TakeSymbol("}");
        throw;
    }
}

char TakeHexByte(TokenCursor &cursor) {
    uint8_t value = 0;
    const std::string_view digits = cursor.token().text;
    const char *const last = digits.data() + digits.size();
    if (digits.size() != 2 || std::from_chars(digits.data(), last, value, 16).ptr != last)
        ExpectedInHexString(cursor, "a byte of two hexadecimal digits, ?? or [HH]");
    cursor.AdvanceInHexString();
    return static_cast<char>(value);
}

void AppendWildcard(StringFeature &string, char byte) {
    if (string.bytes.size() < kMaxStringLength)
        string.mask.set(string.bytes.size());
    string.bytes += byte;
}

void ParseHexString(TokenCursor &cursor, StringFeature &string) {
    cursor.AdvanceInHexString();
    while (!cursor.AtSymbol("}")) {
        if (cursor.AtSymbol("??") || cursor.At(TokenKind::Other)) { // the latter was reported
            cursor.AdvanceInHexString();
            AppendWildcard(string, '\0');
        } else if (cursor.AtSymbol("[")) {
            cursor.AdvanceInHexString();
            AppendWildcard(string, TakeHexByte(cursor));
            if (!cursor.AtSymbol("]"))
                ExpectedInHexString(cursor, "']'");
            cursor.AdvanceInHexString();
        } else {
            string.bytes += TakeHexByte(cursor);
        }
    }
    cursor.Advance();
}

// ---- The parts of a row --------------------------------------------------------------------------------------------

void ExpectValue(TokenCursor &cursor, StringFeature &string) {
    cursor.ExpectSymbol("=");
    const std::size_t begin = cursor.offset();
    if (cursor.At(TokenKind::Text))
        string.bytes = ExpectText(cursor, "a string").value;
    else if (cursor.AtSymbol("{"))
        ParseHexString(cursor, string);
    else
        cursor.Expected("a text in quotes or bytes in braces");
    if (string.bytes.empty() || string.bytes.size() > kMaxStringLength)
        cursor.Report(Code::E310, begin, cursor.end_of_last() - begin,
                      "a string has 1 to 128 bytes; this has " + std::to_string(string.bytes.size()));
    string.bytes.resize(std::min(string.bytes.size(), kMaxStringLength));
}

void ParseSectionArgument(TokenCursor &cursor, StringFeature &string) {
    const std::size_t begin = cursor.offset();
    string.section_name = ExpectText(cursor, "a section name").value;
    if (cursor.TakeSymbol("~"))
        string.section_tail = ExpectText(cursor, "the bytes after the name").value;
    if (string.section_name.empty() || string.section_name.size() + string.section_tail.size() > kMaxSectionName)
        cursor.Report(Code::E303, begin, cursor.end_of_last() - begin,
                      "a section name and what follows it have 1 to 8 characters");
    while (string.section_tail.ends_with('\0'))
        string.section_tail.pop_back();
    cursor.ExpectSymbol(")");
}

void ParseRegion(TokenCursor &cursor, StringFeature &string) {
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("a region of the file");
    const Token name = cursor.token();
    cursor.Advance();
    if (name.text == "section" && cursor.TakeSymbol("(")) {
        ParseSectionArgument(cursor, string);
        string.kind = static_cast<uint8_t>(StringKind::NamedSection);
    } else {
        const Region *region = LookUpRegion(cursor, name);
        if (region != nullptr && region->string_kind == 0)
            cursor.Report(Code::E307, name.offset, name.text.size(),
                          "strings are not looked for in '" + std::string(name.text) + "'");
        string.kind = region == nullptr || region->string_kind == 0 ? uint8_t{1} : region->string_kind;
    }
    if (cursor.AtSymbol("["))
        string.index = static_cast<uint8_t>(ParsePosition(cursor, UINT8_MAX, "a number"));
}

void ParseWindow(TokenCursor &cursor, StringFeature &string) {
    const std::string first = cursor.Text();
    string.window_start = Take<uint16_t>(cursor, "a position");
    string.window_length = 1;
    if (!cursor.TakeSymbol(".."))
        return;
    string.window_length = 0;
    if (!cursor.At(TokenKind::Number))
        return;
    const std::string end = cursor.Text();
    const Written<uint64_t> last = ExpectNumber(cursor, UINT32_MAX, "a position");
    if (last.value < string.window_start) {
        cursor.Report(Code::E311, last.offset, last.length, first + " is above " + end,
                      "swap the bounds: at " + end + ".." + first);
        return;
    }
    if (last.value - string.window_start >= kLargestWindow) {
        cursor.Report(Code::E311, last.offset, last.length, "a window has 1 to 65535 positions");
        return;
    }
    string.window_length = static_cast<uint16_t>(last.value - string.window_start + 1);
}

void ParseAnchor(TokenCursor &cursor, StringFeature &string) {
    const Written<uint64_t> anchor = ExpectNumber(cursor, UINT8_MAX, "an anchor");
    if (anchor.value >= string.bytes.size())
        cursor.Report(Code::E309, anchor.offset, anchor.length, "the anchor is a position within the string");
    string.anchor = static_cast<uint8_t>(anchor.value);
}

void CheckLabel(TokenCursor &cursor, std::size_t count) {
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("a string's letter");
    if (count >= kMaxStrings)
        cursor.Report(Code::E308, cursor.offset(), cursor.length(), "a rule has at most 26 strings, A to Z");
    else if (const std::string letter(1, static_cast<char>('A' + count)); cursor.token().text != letter)
        cursor.Report(Code::E403, cursor.offset(), cursor.length(), "this string's letter is " + letter,
                      "strings are labelled A, B, C, ... in order");
}

} // namespace

void ParseRow(TokenCursor &cursor, std::vector<StringFeature> &list, std::size_t) {
    const std::size_t count = list.size();
    StringFeature &string = list.emplace_back(); // also of a row with errors, so that the letters go on
    CheckLabel(cursor, count);
    cursor.Advance();
    ExpectValue(cursor, string);
    // Both orders of the options are read; the canonical text has only one.
    while (cursor.AtWord("wide") || cursor.AtWord("nocase")) {
        string.options = static_cast<uint8_t>(string.options | (cursor.AtWord("wide") ? kStringWide : kStringNoCase));
        cursor.Advance();
    }
    if (!cursor.TakeWord("in"))
        cursor.Expected("'in' and the region that holds the string", "for example: in section[0]");
    ParseRegion(cursor, string);
    if (cursor.TakeWord("from")) {
        if (!cursor.TakeWord("end"))
            cursor.Expected("'end'");
        string.kind = static_cast<uint8_t>(string.kind + 1);
    }
    if (cursor.TakeWord("at"))
        ParseWindow(cursor, string);
    if (cursor.TakeWord("drift"))
        string.drift = Take<uint16_t>(cursor, "a drift");
    string.anchor = DefaultAnchor(string);
    if (cursor.TakeWord("anchor"))
        ParseAnchor(cursor, string);
}

} // namespace tavrik::rules::text
