/* The lines and numbers of the tables in tests/data, which were typed apart from the tables in code. */
#ifndef TAVRIK_TESTS_SUPPORT_GOLDEN_LINES_H
#define TAVRIK_TESTS_SUPPORT_GOLDEN_LINES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tavrik::tests {

/** A line that is neither empty nor a comment: words divided by blanks, a text in quotes being one word with them. */
struct GoldenLine {
    std::size_t indent = 0; // blanks in front of it
    std::vector<std::string> words;
};

/** The lines of a file of tests/data; none when it cannot be read. */
std::vector<GoldenLine> ReadGolden(const std::string &file_name);

/** The lines below the line with these words, up to the next one that is indented as little. */
std::vector<GoldenLine> GoldenBlock(const std::string &file_name, const std::string &head);

/** A number in decimal or, with 0x, in hexadecimal; std::invalid_argument for anything else. */
int64_t GoldenNumber(const std::string &word);
/** True for what GoldenNumber takes. */
bool IsGoldenNumber(const std::string &word);
/** The inside of a text in quotes, with \" and \n as in C++. */
std::string GoldenText(const std::string &word);

} // namespace tavrik::tests

#endif
