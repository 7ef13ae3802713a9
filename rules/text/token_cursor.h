/* The parser's place in a text: the current token, and the diagnostics found so far. */
#ifndef TAVRIK_RULES_TEXT_TOKEN_CURSOR_H
#define TAVRIK_RULES_TEXT_TOKEN_CURSOR_H

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rules/text/diagnostics.h"
#include "rules/text/lexer.h"

namespace tavrik::rules::text {

/** Thrown after an error has been reported, and caught where parsing can be resumed. */
struct Unreadable {};

class TokenCursor {
public:
    /** Starts at the first token. Both must outlive the object; `errors` holds nothing but errors until
     * MoveWarnings. */
    TokenCursor(std::string_view text, std::vector<Diagnostic> &errors);

    const Token &token() const { return token_; }
    std::size_t offset() const { return token_.offset; }
    std::size_t length() const { return token_.text.size(); }
    std::string Text() const { return std::string(token_.text); }

    /** Where the token before the current one ends. */
    std::size_t end_of_last() const { return end_of_last_; }

    const std::vector<Comment> &comments() const { return lexer_.comments(); }

    bool AtEnd() const { return token_.kind == TokenKind::End; }
    bool At(TokenKind kind) const { return token_.kind == kind; }
    bool AtSymbol(std::string_view symbol) const { return At(TokenKind::Symbol) && token_.text == symbol; }
    bool AtWord(std::string_view word) const { return At(TokenKind::Identifier) && token_.text == word; }

    /** Whether the current token is the word "rule" at the beginning of a line. */
    bool AtRuleStart() const { return token_.first_on_line && AtWord("rule"); }

    void Advance();
    void AdvanceInHexString();  // Lexer::NextInHexString
    void AdvanceToExpression(); // Lexer::NextExpression

    /** Advances past the symbol or word if it is the current token; returns whether it was. */
    bool TakeSymbol(std::string_view symbol);
    bool TakeWord(std::string_view word);

    /** Reports an error if the symbol is not the current token. */
    void ExpectSymbol(std::string_view symbol, std::string help = "");

    /** Reports that something else was expected than the current token. */
    [[noreturn]] void Expected(std::string_view what, std::string help = "");

    void Report(Code code, std::size_t offset, std::size_t length, std::string message, std::string help = "");
    void Warn(Code code, std::size_t offset, std::size_t length, std::string message, std::string help = "");

    /** The number of errors reported, the lexer's included. */
    std::size_t ErrorCount() const { return errors_.size(); }
    bool TooManyErrors() const { return errors_.size() >= kMaxErrors; }

    /** Whether the latest error is at or after `offset`. */
    bool HasErrorSince(std::size_t offset) const { return !errors_.empty() && errors_.back().offset >= offset; }

    /** Appends the warnings to the errors and sorts all by their offsets. */
    void MoveWarnings();

    /** How the text writes the next value of the current row: by names, or "" by a number. */
    void NoteValue(std::string spelled) { values_.push_back(std::move(spelled)); }

    /** The values noted since the last call. */
    std::vector<std::string> TakeValues() { return std::exchange(values_, {}); }

    /** Skips to the next row: the next line, a ';' or a closing brace. `begin` is the offset of the row to skip. */
    void SkipRow(std::size_t begin);

    /** Skips a pair of braces and what is between them, at most to the beginning of a rule. */
    void SkipBraces();

    void SkipToNextRule();

private:
    std::vector<Diagnostic> &errors_;
    std::vector<Diagnostic> warnings_; // apart, so that they do not count against kMaxErrors
    Lexer lexer_;
    Token token_;
    std::vector<std::string> values_;
    std::size_t end_of_last_ = 0;
};

} // namespace tavrik::rules::text

#endif
