#include "rules/text/lexer.h"

#include <algorithm>
#include <array>

namespace tavrik::rules::text {

namespace {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool IsHexDigit(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

constexpr bool IsWordStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

constexpr bool IsWordPart(char c) {
    return IsWordStart(c) || IsDigit(c);
}

// Longer ones first.
constexpr std::array<std::string_view, 23> kSymbols = {"..", "==", "!=", "<=", ">=", "??", "{", "}", "[", "]", "(", ")",
                                                       ".",  ",",  ";",  "|",  "&",  "#",  "=", "~", "<", ">", "+"};

// From the first byte to the next `last` on the same line, both included; "" if there is none.
std::string_view Enclosed(std::string_view rest, char last) {
    const std::size_t end = rest.find_first_of(std::string{last, '\n'}, 1);
    return end == std::string_view::npos || rest[end] == '\n' ? "" : rest.substr(0, end + 1);
}

// The length of a jump of YARA, such as [4], [2-4] or [2-]; 0 when there is none. [41] is a byte.
std::size_t JumpLength(std::string_view rest) {
    const std::string_view jump = Enclosed(rest, ']');
    const bool is_byte = jump.size() == 4 && IsHexDigit(jump[1]) && IsHexDigit(jump[2]);
    if (!rest.starts_with('[') || jump.size() < 3 || is_byte)
        return 0;
    const auto is_part = [](char c) { return IsDigit(c) || c == '-' || c == ' '; };
    return std::ranges::all_of(jump.substr(1, jump.size() - 2), is_part) ? jump.size() : 0;
}

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

} // namespace

Lexer::Lexer(std::string_view text, std::vector<Diagnostic> &diagnostics) : text_(text), diagnostics_(diagnostics) {
    if (text_.starts_with(kUtf8Mark))
        position_ = kUtf8Mark.size();
}

Token Lexer::Next() {
    SkipBlanks();
    if (position_ >= text_.size())
        return Take(TokenKind::End, 0);
    const std::string_view rest = text_.substr(position_);
    const char c = rest.front();
    if (IsWordStart(c)) {
        const auto end = std::ranges::find_if_not(rest, IsWordPart);
        return Take(TokenKind::Identifier, static_cast<std::size_t>(end - rest.begin()));
    }
    if (IsDigit(c) || (c == '-' && rest.size() > 1 && IsDigit(rest[1])))
        return TakeNumber();
    if (c == '"')
        return TakeText();
    for (const std::string_view symbol : kSymbols) {
        if (rest.starts_with(symbol))
            return Take(TokenKind::Symbol, symbol.size());
    }
    if (const std::string_view text = Enclosed(rest, c); c == '\'' && !text.empty())
        return TakeForeign(text.size(), "text is written in double quotes", "write \"...\"");
    if (const std::string_view text = Enclosed(rest, c); c == '/' && !text.empty())
        return TakeForeign(text.size(), "there are no regular expressions",
                           "write a text, or bytes with ?? for any byte; alternatives are strings of their own: (A|B)");
    if (c == '$') {
        const auto end = std::find_if_not(rest.begin() + 1, rest.end(), IsWordPart);
        return TakeForeign(static_cast<std::size_t>(end - rest.begin()), "strings have no names with $",
                           "strings are labelled A, B, C, ... in order");
    }
    // A run of bytes that begin no word is one mistake.
    const auto strange = [](char byte) {
        return byte == '\0' || static_cast<unsigned char>(byte) >= 0x80 || (byte > ' ' && !IsWordPart(byte));
    };
    std::size_t length = 1;
    while (length < rest.size() && strange(rest[length]) && strange(c) &&
           std::string_view("{}[]().,;|&#=~<>!?\"/-+").find(rest[length]) == std::string_view::npos)
        ++length;
    Report(Code::E001, position_, length, "these characters mean nothing here",
           "text is written in double quotes, a comment after //");
    return Take(TokenKind::Other, length);
}

Token Lexer::NextInHexString() {
    SkipBlanks();
    const std::string_view rest = text_.substr(std::min(position_, text_.size()));
    if (rest.size() >= 2 && IsHexDigit(rest[0]) && IsHexDigit(rest[1]))
        return Take(TokenKind::Identifier, 2);
    const bool is_half =
        rest.size() >= 2 && ((IsHexDigit(rest[0]) && rest[1] == '?') || (rest[0] == '?' && IsHexDigit(rest[1])));
    if (is_half)
        return TakeForeign(2, "a byte is known or not, there are no halves of it", "write ?? for any byte");
    if (const std::size_t length = JumpLength(rest); length != 0)
        return TakeForeign(length, "there are no jumps in a string",
                           "write ?? for each byte, or two strings where the distance varies: (A&B)");
    if (const std::string_view text = Enclosed(rest, ')'); rest.starts_with('(') && !text.empty())
        return TakeForeign(text.size(), "there are no alternatives in a string",
                           "write a string for each, and join them: when (A|B)");
    return Next();
}

// A form of another rule language, reported here; the parser adds no error to it.
Token Lexer::TakeForeign(std::size_t length, std::string message, std::string help) {
    Report(Code::E104, position_, length, std::move(message), std::move(help));
    return Take(TokenKind::Other, length);
}

Token Lexer::NextExpression() {
    SkipBlanks();
    // Expressions have no slash, so that one begins a comment.
    const std::size_t end = std::min(text_.find_first_of("\r\n};\"/", position_), text_.size());
    std::size_t length = end - position_;
    while (length > 0 && (text_[position_ + length - 1] == ' ' || text_[position_ + length - 1] == '\t'))
        --length;
    return length == 0 ? Next() : Take(TokenKind::Other, length);
}

void Lexer::SkipBlanks() {
    while (position_ < text_.size()) {
        const std::string_view rest = text_.substr(position_);
        if (rest.front() == '\n') {
            first_on_line_ = true;
            ++position_;
        } else if (rest.front() == ' ' || rest.front() == '\t' || rest.front() == '\r') {
            ++position_;
        } else if (rest.starts_with("//")) {
            SkipComment("\n", false);
        } else if (rest.starts_with("/*")) {
            SkipComment("*/", true);
        } else {
            return;
        }
    }
}

void Lexer::SkipComment(std::string_view end, bool end_is_part) {
    const std::size_t begin = position_;
    std::size_t stop = text_.find(end, begin + 2);
    if (stop == std::string_view::npos) {
        stop = text_.size();
        if (end_is_part)
            Report(Code::E002, begin, 2, "this comment has no end", "close it with */");
    } else if (end_is_part) {
        stop += end.size();
    }
    std::string_view text = text_.substr(begin, stop - begin);
    position_ = stop;
    while (!end_is_part && (text.ends_with('\r') || text.ends_with(' ') || text.ends_with('\t')))
        text.remove_suffix(1);
    comments_.push_back({begin, text, first_on_line_});
    if (text.find('\n') != std::string_view::npos)
        first_on_line_ = true;
}

Token Lexer::Take(TokenKind kind, std::size_t length) {
    const Token token{kind, position_, text_.substr(std::min(position_, text_.size()), length), first_on_line_};
    position_ += length;
    first_on_line_ = false;
    return token;
}

Token Lexer::TakeNumber() {
    const std::string_view rest = text_.substr(position_);
    std::size_t length = rest.front() == '-' ? 1 : 0;
    const auto skip = [&](auto is_part) {
        while (length < rest.size() && is_part(rest[length]))
            ++length;
    };
    if (rest.substr(length).starts_with("0x")) {
        length += 2;
        skip(IsWordPart); // wrong digits are found when the number is read
        return Take(TokenKind::Number, length);
    }
    skip(IsDigit);
    TokenKind kind = rest.front() == '-' ? TokenKind::Real : TokenKind::Number;
    if (length + 1 < rest.size() && rest[length] == '.' && IsDigit(rest[length + 1])) {
        kind = TokenKind::Real;
        ++length;
    }
    skip(IsWordPart);
    return Take(kind, length);
}

Token Lexer::TakeText() {
    const std::string_view rest = text_.substr(position_);
    std::size_t length = 1;
    while (length < rest.size() && rest[length] != '"' && rest[length] != '\n') {
        // An escaped quote does not end the text.
        const bool escape = rest[length] == '\\' && length + 1 < rest.size() && rest[length + 1] != '\n';
        length += escape ? std::size_t{2} : std::size_t{1};
    }
    if (length < rest.size() && rest[length] == '"')
        return Take(TokenKind::Text, length + 1);
    length = std::min(length, rest.size());
    const bool has_quote = rest.substr(0, length).find("\\\"") != std::string_view::npos;
    Report(Code::E003, position_, length, "this text has no closing quote",
           has_quote ? "\\\" is a quote within the text; write \\\\ for a backslash"
                     : "a text is written on one line; write \\n for a line's end");
    return Take(TokenKind::Other, length);
}

void Lexer::Report(Code code, std::size_t offset, std::size_t length, std::string message, std::string help) {
    if (diagnostics_.size() < kMaxErrors)
        diagnostics_.push_back({Severity::Error, code, offset, length, std::move(message), std::move(help)});
}

} // namespace tavrik::rules::text
