#include "rules/expression.h"

#include <bit>

namespace tavrik::rules {

namespace {

// Walks an expression with a count of open parentheses instead of recursion, so that no text is too deep.
class Walker {
public:
    explicit Walker(std::string_view text) : text_(text) {}

    std::optional<ExpressionError> Walk() {
        // One character for each open parenthesis: '1' before its operator, '2' after it.
        std::string states;
        bool needs_operand = true;
        while (true) {
            while (position_ < text_.size() && text_[position_] == ' ')
                ++position_;
            if (position_ == text_.size())
                break;
            const char c = text_[position_];
            if (needs_operand && c == '(') {
                states.push_back('1');
            } else if (needs_operand && IsStringLetter(c)) {
                needs_operand = false;
            } else if (!needs_operand && (c == '&' || c == '|')) {
                if (states.empty())
                    return Error("an operation must have parentheses of its own");
                if (states.back() == '2')
                    return Error("a pair of parentheses holds one operation; put this one into its own");
                states.back() = '2';
                needs_operand = true;
            } else if (!needs_operand && c == ')') {
                if (states.empty())
                    return Error("this parenthesis was never opened");
                if (states.back() == '1')
                    return Error("the parentheses hold no operation");
                states.pop_back();
            } else {
                return Error(needs_operand ? "a letter or '(' was expected" : "'&', '|' or ')' was expected");
            }
            ++position_;
        }
        if (needs_operand)
            return Error("a letter or '(' was expected");
        if (!states.empty())
            return Error("a ')' is missing");
        return std::nullopt;
    }

private:
    std::optional<ExpressionError> Error(std::string message) const {
        return ExpressionError{position_, std::move(message)};
    }

    std::string_view text_;
    std::size_t position_ = 0;
};

} // namespace

LetterSet LettersOf(std::string_view expression) {
    LetterSet letters = 0;
    for (const char c : expression) {
        if (IsStringLetter(c))
            letters |= LetterSet{1} << (c - 'A');
    }
    return letters;
}

std::optional<ExpressionError> CheckExpression(std::string_view expression, std::size_t string_count) {
    if (expression.empty())
        return std::nullopt;
    if (auto error = Walker(expression).Walk())
        return error;
    const LetterSet letters = LettersOf(expression);
    const auto used = static_cast<std::size_t>(std::bit_width(letters));
    if (used > string_count) {
        const char letter = static_cast<char>('A' + static_cast<int>(used) - 1);
        return ExpressionError{expression.find(letter), std::string("there is no string ") + letter};
    }
    if (!std::has_single_bit(letters + 1)) {
        const char missing = static_cast<char>('A' + std::countr_one(letters));
        return ExpressionError{0, std::string("the letters run from A without a gap, but ") + missing + " is missing"};
    }
    return std::nullopt;
}

} // namespace tavrik::rules
