#include "database/generator/expressions.h"

#include <stdexcept>

namespace tavrik::generator {
namespace {

struct Sized {
    std::size_t letters;
    std::string_view text;
};

// What authors write most, and the few that were typed with blanks.
constexpr Sized kUsual[] = {
    {2, "(A|B)"},
    {2, "(A&B)"},
    {3, "((A|B)&C)"},
    {3, "(A&(B|C))"},
    {3, "((A|B)|C)"},
    {3, "(A|(B&C))"},
    {3, "((A&B)|C)"},
    {4, "((A|B)&(C|D))"},
    {4, "(A &((B|C)|D))"},
    {4, "(((A|B)|C)&D)"},
    {4, "((A&B)|(C&D))"},
    {5, "(((A|B)|C)&(D|E))"},
    {5, "((A|B) &(C|(D|E)))"},
    {6, "(((A|B)&(C|D))&(E|F))"},
};

// How many expressions of each number of letters are made, in hundredths of all; the rest has four letters.
struct Share {
    std::size_t letters;
    std::size_t percent;
};
constexpr Share kShares[] = {{3, 4}, {5, 21}, {6, 20}, {7, 13}, {8, 8}, {9, 5}, {10, 3}, {11, 2}, {12, 2}, {13, 2}};
constexpr std::size_t kRestLetters = 4;

std::string Tree(char first, std::size_t letters, Random &random) {
    if (letters == 1)
        return std::string(1, first);
    const std::size_t left = 1 + random.Below(letters - 1);
    const char op = random.Chance(60) ? '|' : '&';
    std::string text = "(" + Tree(first, left, random);
    text += op;
    text += Tree(static_cast<char>(first + static_cast<char>(left)), letters - left, random);
    return text + ")";
}

} // namespace

ExpressionPool MakeExpressions(std::size_t count, const std::set<std::string> &taken, Random &random) {
    ExpressionPool pool;
    std::set<std::string> used = taken;
    std::size_t made = 0;
    const auto add = [&](std::size_t letters, std::string text) {
        if (made == count || !used.insert(text).second)
            return false;
        pool[letters].push_back(std::move(text));
        ++made;
        return true;
    };
    for (const Sized &usual : kUsual)
        add(usual.letters, std::string(usual.text));
    for (const Share &share : kShares) {
        constexpr int kTries = 1000; // the small ones are soon exhausted
        for (int i = 0; i < kTries && pool[share.letters].size() < share.percent * count / 100; ++i)
            add(share.letters, Tree('A', share.letters, random));
    }
    constexpr int kTries = 10000;
    for (int i = 0; i < kTries && made < count; ++i)
        add(kRestLetters, Tree('A', kRestLetters, random));
    for (int i = 0; i < kTries && made < count; ++i)
        add(kRestLetters + 1, Tree('A', kRestLetters + 1, random));
    if (made != count)
        throw std::logic_error("there are not enough expressions of the chosen sizes");
    return pool;
}

} // namespace tavrik::generator
