#include "database/generator/names.h"

#include "rules/model.h"

namespace tavrik::generator {
namespace {

constexpr std::string_view kStarts[] = {"Br", "D", "Dr", "F",  "G",  "Gr", "H",  "J", "K",  "Kr", "L", "M", "N", "P",
                                        "Qu", "R", "S",  "Sk", "St", "T",  "Tr", "V", "Vl", "W",  "X", "Y", "Z", "Zh"};
constexpr std::string_view kVowels[] = {"a", "e", "i", "o", "u", "ae", "y", "o", "a", "e"};
constexpr std::string_view kMiddles[] = {"b",  "d", "ld", "g",  "k", "l",  "lm", "m", "n", "nd",
                                         "nt", "p", "r",  "rv", "s", "sk", "t",  "v", "x", "z"};
constexpr std::string_view kEnds[] = {"", "", "k", "l", "n", "r", "s", "t", "x", "dor", "mir", "nak", "zik"};
constexpr std::size_t kLongestWord = 8;

std::string Word(Random &random) {
    std::string word;
    do {
        word = random.Pick(kStarts);
        word += random.Pick(kVowels);
        word += random.Pick(kMiddles);
        word += random.Pick(kVowels);
        word += random.Pick(kEnds);
    } while (word.size() < 4 || word.size() > kLongestWord);
    return word;
}

} // namespace

std::string FamilyWord(uint64_t seed) {
    Random random(seed);
    return Word(random);
}

std::string SmallWord(Random &random) {
    std::string word = Word(random);
    for (char &c : word)
        c = static_cast<char>(c | 0x20);
    return word;
}

std::string DetectionNames::Next(std::string_view category, const std::string &family, Random &random) {
    constexpr uint32_t kLetters = 26;
    constexpr uint32_t kDigits = 9;
    const std::string stem = std::string(category) + "." + family + ".";
    const char first_letter = family == "VB" ? 'a' : 'A';
    for (;;) {
        std::string name = stem;
        name += static_cast<char>(first_letter + static_cast<char>(random.Below(kLetters)));
        name += static_cast<char>(first_letter + static_cast<char>(random.Below(kLetters)));
        name += static_cast<char>('1' + static_cast<char>(random.Below(kDigits)));
        if (name.size() <= rules::kMaxDetectionName && used_.insert(name).second)
            return name;
    }
}

} // namespace tavrik::generator
