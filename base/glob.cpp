#include "base/glob.h"

#include <cstddef>

#include "base/characters.h"

namespace tavrik::base {

namespace {

// Whether the byte is in the set; `set` is the text between the brackets.
bool InSet(std::string_view set, char byte) {
    const bool wanted = set.front() != '!';
    if (!wanted)
        set.remove_prefix(1);
    const auto value = static_cast<unsigned char>(byte);
    for (std::size_t i = 0; i < set.size(); ++i) {
        const auto low = static_cast<unsigned char>(set[i]);
        const bool is_range = i + 2 < set.size() && set[i + 1] == '-';
        const auto high = is_range ? static_cast<unsigned char>(set[i + 2]) : low;
        if (low <= value && value <= high)
            return wanted;
        i += is_range ? 2 : 0;
    }
    return !wanted;
}

// The length of the character that begins the text, in bytes.
std::size_t CharacterLength(std::string_view text) {
    std::size_t length = 1;
    while (length < text.size() && IsUtf8Continuation(text[length]))
        ++length;
    return length;
}

// The lengths of one element of a pattern and of what it matches; both 0 when it does not match the text's beginning.
struct Taken {
    std::size_t pattern = 0;
    std::size_t text = 0;
};

Taken TakeOne(std::string_view pattern, std::string_view text) {
    if (pattern.empty())
        return {};
    if (pattern[0] == '?')
        return {1, CharacterLength(text)};
    if (pattern[0] == '[') {
        // A "]" at the beginning belongs to the set.
        const std::size_t begin = pattern.size() > 1 && pattern[1] == '!' ? 2 : 1;
        const std::size_t end = pattern.find(']', begin + 1);
        if (end != std::string_view::npos)
            return InSet(pattern.substr(1, end - 1), text[0]) ? Taken{end + 1, 1} : Taken{};
    }
    return pattern[0] == text[0] ? Taken{1, 1} : Taken{};
}

} // namespace

bool MatchesGlob(std::string_view pattern, std::string_view text) {
    // Backtracking to the last "*" is enough: an earlier one that takes more cannot make a match possible.
    std::string_view star_pattern; // after the last "*"
    std::string_view star_text;    // after what it has matched
    bool has_star = false;
    while (!text.empty()) {
        if (!pattern.empty() && pattern[0] == '*') {
            pattern.remove_prefix(1);
            has_star = true;
            star_pattern = pattern;
            star_text = text;
        } else if (const Taken taken = TakeOne(pattern, text); taken.pattern != 0) {
            pattern.remove_prefix(taken.pattern);
            text.remove_prefix(taken.text);
        } else if (has_star) {
            star_text.remove_prefix(1);
            pattern = star_pattern;
            text = star_text;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*') == std::string_view::npos;
}

} // namespace tavrik::base
