#include "rules/text/count_of.h"

#include <algorithm>
#include <charconv>

#include "rules/expression.h"
#include "rules/model.h"

namespace tavrik::rules::text {

namespace {

constexpr bool IsCountWordByte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Reads an expression from left to right.
class Reader {
public:
    explicit Reader(std::string_view text) : text_(text) {}

    std::size_t position() const { return position_; }
    bool AtEnd() const { return position_ == text_.size(); }
    char Next() { return text_[position_++]; }
    void GoTo(std::size_t position) { position_ = position; }

    bool Take(char c) {
        SkipBlanks();
        if (AtEnd() || text_[position_] != c)
            return false;
        ++position_;
        return true;
    }

    std::string_view TakeWord() {
        SkipBlanks();
        const std::size_t begin = position_;
        while (!AtEnd() && IsCountWordByte(text_[position_]))
            ++position_;
        return text_.substr(begin, position_ - begin);
    }

private:
    void SkipBlanks() {
        while (!AtEnd() && text_[position_] == ' ')
            ++position_;
    }

    std::string_view text_;
    std::size_t position_ = 0;
};

// One "N of (...)".
struct Count {
    std::string_view wanted; // a number, any, or all
    std::string letters;
};

// The one that begins at the reader's place; nothing, and the reader where it was, when none does.
std::optional<Count> TakeCount(Reader &reader, std::size_t string_count) {
    const std::size_t begin = reader.position();
    Count count;
    count.wanted = reader.TakeWord();
    const bool is_number =
        !count.wanted.empty() && std::ranges::all_of(count.wanted, [](char c) { return c >= '0' && c <= '9'; });
    if ((is_number || count.wanted == "any" || count.wanted == "all") && reader.TakeWord() == "of") {
        if (!reader.Take('(')) {
            for (std::size_t i = 0; i < std::min(string_count, kMaxStrings); ++i)
                count.letters += static_cast<char>('A' + i);
            if (reader.TakeWord() == "them")
                return count;
        } else {
            do {
                const std::string_view letter = reader.TakeWord();
                if (letter.size() != 1 || !IsStringLetter(letter.front())) {
                    reader.GoTo(begin);
                    return std::nullopt;
                }
                count.letters += letter;
            } while (reader.Take(','));
            if (reader.Take(')'))
                return count;
        }
    }
    reader.GoTo(begin);
    return std::nullopt;
}

std::string Joined(std::string_view letters, char operation) {
    const std::string_view others = letters.substr(std::min<std::size_t>(letters.size(), 1));
    std::string text(others.size(), '(');
    text += letters.substr(0, 1);
    for (const char letter : others)
        text.append({operation, letter, ')'});
    return text;
}

// `wanted` of the letters, 1 to all of them, in pairs: the first with one fewer of the others, or without it. Stops
// when the text is too long.
void Append(std::string &text, std::string_view letters, std::size_t wanted) {
    if (text.size() > kLongestExpansion)
        return;
    if (wanted == 1 || wanted == letters.size()) {
        text += Joined(letters, wanted == 1 ? '|' : '&');
        return;
    }
    text.append("((").append(letters.substr(0, 1)).append("&");
    Append(text, letters.substr(1), wanted - 1);
    text += ")|";
    Append(text, letters.substr(1), wanted);
    text += ")";
}

std::optional<CountError> AppendCount(std::string &text, const Count &count) {
    std::string sorted = count.letters;
    std::ranges::sort(sorted);
    if (std::ranges::adjacent_find(sorted) != sorted.end())
        return CountError{0, 0, "a string is in this list twice", "name each string once"};
    std::size_t wanted = count.wanted == "any" ? 1 : count.letters.size();
    if (count.wanted != "any" && count.wanted != "all" &&
        std::from_chars(count.wanted.data(), count.wanted.data() + count.wanted.size(), wanted).ec != std::errc{})
        wanted = kMaxStrings + 1;
    if (wanted == 0 || wanted > count.letters.size())
        return CountError{0, 0,
                          "this asks for " + std::string(count.wanted) + " of " + std::to_string(count.letters.size()) +
                              (count.letters.size() == 1 ? " string" : " strings"),
                          "ask for 1 to as many as there are"};
    Append(text, count.letters, wanted);
    if (text.size() > kLongestExpansion)
        return CountError{0, 0, "this becomes an expression of more than 4096 bytes",
                          "name fewer strings, or write a rule for each group of them"};
    return std::nullopt;
}

} // namespace

std::optional<Expansion> ExpandCounts(std::string_view expression, std::size_t string_count) {
    Reader reader(expression);
    Expansion expansion;
    bool is_changed = false;
    bool in_word = false;
    while (!reader.AtEnd()) {
        const std::size_t begin = reader.position();
        const bool begins_word = !in_word && IsCountWordByte(expression[begin]);
        const std::optional<Count> count = begins_word ? TakeCount(reader, string_count) : std::nullopt;
        if (count) {
            is_changed = true;
            expansion.error = AppendCount(expansion.text, *count);
            if (expansion.error) {
                expansion.error->offset = begin;
                expansion.error->length = reader.position() - begin;
                return expansion;
            }
            continue;
        }
        const char next = reader.Next();
        in_word = IsCountWordByte(next);
        expansion.text += next;
    }
    return is_changed ? std::optional(std::move(expansion)) : std::nullopt;
}

} // namespace tavrik::rules::text
