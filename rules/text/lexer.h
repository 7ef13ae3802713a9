/* The tokens of the rule language. */
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
    Symbol,     // one of { } [ ] ( ) . .. , ; | & # = ~ + == != < > <= >= ??
    Other,      // bytes that begin no token, reported already; or an expression
};

struct Token {
    TokenKind kind = TokenKind::End;
    std::size_t offset = 0;
    std::string_view text; // as written
    bool first_on_line = false;
};

/** A comment as written, without a line's end and the blanks before that. */
struct Comment {
    std::size_t offset = 0;
    std::string_view text;
    bool own_line = false; // only blanks precede it on its line
};

/** Splits a text into tokens, one at a time. The text must outlive the lexer and its tokens. */
class Lexer {
public:
    /** Errors are appended to `diagnostics`, which must outlive the lexer. */
    Lexer(std::string_view text, std::vector<Diagnostic> &diagnostics);

    /** The next token; at the end of the text End, however often it is called. */
    Token Next();

    /** The next token within a hex string, where two hexadecimal digits are one (an Identifier), whatever follows them.
     * Forms of YARA's that the language does not have are reported, and become one Other. */
    Token NextInHexString();

    /** The rest of the current line up to a line's end, a '}' or a ';', without blanks at its ends: an expression, as
     * one Other. */
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
