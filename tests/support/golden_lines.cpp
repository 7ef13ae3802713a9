#include "tests/support/golden_lines.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <map>
#include <stdexcept>

#include <fmt/format.h>

#include "base/system.h"

namespace tavrik::tests {

std::vector<GoldenLine> ReadGolden(const std::string &file_name) {
    static std::map<std::string, std::vector<GoldenLine>> files;
    const auto [found, is_new] = files.try_emplace(file_name);
    std::vector<GoldenLine> &lines = found->second;
    if (!is_new)
        return lines;
    std::ifstream file(base::ProgramFolder() / "golden" / file_name);
    for (std::string text; std::getline(file, text);) {
        GoldenLine line;
        line.indent = std::min(text.find_first_not_of(' '), text.size());
        for (std::size_t at = line.indent; at < text.size() && text[line.indent] != '#';) {
            std::size_t end = at;
            for (bool quoted = false; end < text.size() && (quoted || text[end] != ' '); ++end) {
                if (text[end] == '\\')
                    ++end;
                else if (text[end] == '"')
                    quoted = !quoted;
            }
            line.words.push_back(text.substr(at, end - at));
            at = std::min(text.find_first_not_of(' ', end), text.size());
        }
        if (!line.words.empty())
            lines.push_back(line);
    }
    return lines;
}

std::vector<GoldenLine> GoldenBlock(const std::string &file_name, const std::string &head) {
    std::vector<GoldenLine> block;
    bool inside = false;
    std::size_t indent = 0;
    for (const GoldenLine &line : ReadGolden(file_name)) {
        inside = inside && line.indent > indent;
        if (inside)
            block.push_back(line);
        if (!inside && fmt::format("{}", fmt::join(line.words, " ")) == head) {
            inside = true;
            indent = line.indent;
        }
    }
    return block;
}

int64_t GoldenNumber(const std::string &word) {
    const bool negative = word.starts_with('-');
    const std::string digits = word.substr(negative ? 1 : 0);
    const bool hexadecimal = digits.starts_with("0x");
    int64_t number = 0;
    const char *begin = digits.data() + (hexadecimal ? 2 : 0);
    const auto [end, error] = std::from_chars(begin, digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw std::invalid_argument(word + " is not a number");
    return negative ? -number : number;
}

bool IsGoldenNumber(const std::string &word) {
    const std::string digits = word.substr(word.starts_with('-') ? 1 : 0);
    return !digits.empty() && std::isdigit(static_cast<unsigned char>(digits[0])) != 0 &&
           std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isxdigit(c) != 0 || c == 'x'; });
}

std::string GoldenText(const std::string &word) {
    std::string text;
    for (std::size_t at = 1; at + 1 < word.size(); ++at) {
        if (word[at] != '\\')
            text += word[at];
        else
            text += word[++at] == 'n' ? '\n' : word[at];
    }
    return text;
}

} // namespace tavrik::tests
