/* The words of the rule language. */
#ifndef TAVRIK_RULES_TEXT_LEXER_H
#define TAVRIK_RULES_TEXT_LEXER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rules/text/diagnostics.h"

namespace tavrik::rules::text {

enum class TokenKind : uint8_t {
    End,        // of the text
    Identifier, // a letter or '_', then letters, digits and '_'
    Number,     // decimal or hexadecimal
    Real,       // with a fraction
    Text,       // in double quotes
    Symbol,     // one of { } [ ] ( ) . .. , ; | & # = ~ == != < > <= >= ??
    Other,      // a byte that begins no word; reported already
};

struct Token {
    TokenKind kind = TokenKind::End;
    std::size_t offset = 0;
    std::string_view text; // as written
    bool first_on_line = false;
};

/** A comment as written, without a line's end and blanks before it. */
struct Comment {
    std::size_t offset = 0;
    std::string_view text;
    bool own_line = false; // nothing but blanks stands before it on its line
};

/** Splits a text into words, one at a time. The text must outlive the lexer and its tokens. */
class Lexer {
public:
    Lexer(std::string_view text, std::vector<Diagnostic> &diagnostics);

    /** The next word; End again and again at the end. */
    Token Next();

    /** The next word of a hex string's inside, where two hexadecimal digits are a word (an Identifier), whatever
     * follows them. What YARA writes there beyond our forms is reported, and becomes one Other. */
    Token NextInHexString();

    /** The rest of the current line up to a line's end, a '}' or a ';', without blanks at its ends: an expression. */
    Token NextExpression();

    const std::vector<Comment> &comments() const { return comments_; }

private:
    void SkipBlanks();
    void SkipComment(std::string_view end, bool end_is_part);
    Token Take(TokenKind kind, std::size_t length);
    Token TakeForeign(std::size_t length, std::string message, std::string help);
    Token TakeNumber();
    Token TakeText();
    void Report(Code code, std::size_t offset, std::size_t length, std::string message, std::string help);

    std::string_view text_;
    std::vector<Diagnostic> &diagnostics_;
    std::vector<Comment> comments_;
    std::size_t position_ = 0;
    bool first_on_line_ = true;
};

} // namespace tavrik::rules::text

#endif
