#include "rules/text/foreign_files.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "rules/text/lexer.h"

namespace tavrik::rules::text {

namespace {

// It has a byte order mark, or every other of its first bytes is NUL.
bool IsUtf16(std::string_view text) {
    constexpr std::size_t kLooked = 8; // bytes
    if (text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF"))
        return true;
    if (text.size() < kLooked)
        return false;
    const bool nul_first = text[0] == '\0';
    for (std::size_t i = 0; i < kLooked; ++i)
        if ((text[i] == '\0') != (i % 2 == (nul_first ? 0U : 1U)))
            return false;
    return true;
}

// YARA rules begin with a name where ours have a number, and each has a "condition:".
bool IsYara(std::string_view text) {
    constexpr std::array<std::string_view, 4> kFirstWords = {"import", "include", "private", "global"};
    std::vector<Diagnostic> ignored;
    Lexer lexer(text, ignored);
    Token token = lexer.Next();
    if (token.kind != TokenKind::Identifier)
        return false;
    if (token.text == "rule") {
        token = lexer.Next();
        if (token.kind != TokenKind::Identifier)
            return false;
    } else if (std::ranges::find(kFirstWords, token.text) == kFirstWords.end()) {
        return false;
    }
    while (token.kind != TokenKind::End) {
        const bool is_condition = token.kind == TokenKind::Identifier && token.text == "condition";
        token = lexer.Next();
        if (is_condition && token.kind == TokenKind::Other && token.text.starts_with(':'))
            return true;
    }
    return false;
}

} // namespace

std::optional<Diagnostic> FindForeignFile(std::string_view text) {
    const auto error = [](Code code, std::size_t offset, std::string message) {
        return Diagnostic{Severity::Error, code, offset, 0, std::move(message), ""};
    };
    if (IsUtf16(text))
        return error(Code::E006, 0, "this file is UTF-16: save it as UTF-8");
    if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos)
        return error(Code::E005, nul,
                     "this file has a NUL byte here and is no text: name the .rules file that it was made from");
    if (IsYara(text))
        return error(Code::E007, 0,
                     "this is a file of YARA rules: write its rules anew, rule 1 \"Name\" { strings { A = \"text\" in "
                     "file } when A }");
    return std::nullopt;
}

} // namespace tavrik::rules::text
