#include "rules/text/token_cursor.h"

#include <algorithm>
#include <utility>

namespace tavrik::rules::text {

TokenCursor::TokenCursor(std::string_view text, std::vector<Diagnostic> &errors)
    : errors_(errors), lexer_(text, errors) {
    Advance();
}

void TokenCursor::Advance() {
    end_of_last_ = token_.offset + token_.text.size();
    token_ = lexer_.Next();
}

void TokenCursor::AdvanceInHexString() {
    end_of_last_ = token_.offset + token_.text.size();
    token_ = lexer_.NextInHexString();
}

void TokenCursor::AdvanceToExpression() {
    token_ = lexer_.NextExpression();
}

bool TokenCursor::TakeSymbol(std::string_view symbol) {
    if (!AtSymbol(symbol))
        return false;
    Advance();
    return true;
}

bool TokenCursor::TakeWord(std::string_view word) {
    if (!AtWord(word))
        return false;
    Advance();
    return true;
}

void TokenCursor::ExpectSymbol(std::string_view symbol, std::string help) {
    if (!TakeSymbol(symbol))
        Expected("'" + std::string(symbol) + "'", std::move(help));
}

void TokenCursor::Expected(std::string_view what, std::string help) {
    // What the lexer could not read has been reported already.
    if (AtEnd())
        Report(Code::E101, offset(), 0, std::string(what) + " was expected, but the text ends here", std::move(help));
    else if (!At(TokenKind::Other))
        Report(Code::E101, offset(), length(), std::string(what) + " was expected", std::move(help));
    throw Unreadable{};
}

void TokenCursor::Report(Code code, std::size_t offset, std::size_t length, std::string message, std::string help) {
    if (!TooManyErrors())
        errors_.push_back({Severity::Error, code, offset, length, std::move(message), std::move(help)});
}

void TokenCursor::Warn(Code code, std::size_t offset, std::size_t length, std::string message, std::string help) {
    if (warnings_.size() < kMaxErrors)
        warnings_.push_back({Severity::Warning, code, offset, length, std::move(message), std::move(help)});
}

void TokenCursor::MoveWarnings() {
    std::ranges::move(warnings_, std::back_inserter(errors_));
    warnings_.clear();
    std::ranges::stable_sort(errors_, {}, &Diagnostic::offset);
}

void TokenCursor::SkipRow(std::size_t begin) {
    while (!AtEnd() && !AtSymbol("}")) {
        if (offset() != begin && (token_.first_on_line || AtSymbol(";")))
            break;
        if (AtSymbol("{"))
            SkipBraces();
        else
            Advance();
    }
    TakeSymbol(";");
}

void TokenCursor::SkipBraces() {
    std::size_t depth = 0;
    while (!AtEnd() && !(depth > 0 && AtRuleStart())) {
        if (AtSymbol("{"))
            ++depth;
        const bool closes = AtSymbol("}") && --depth == 0;
        Advance();
        if (closes)
            return;
    }
}

void TokenCursor::SkipToNextRule() {
    while (!AtEnd() && !AtRuleStart())
        Advance();
}

} // namespace tavrik::rules::text
