/* Standard output and standard error of a long run: lines, and a progress line below them. */
#ifndef TAVRIK_BASE_CONSOLE_H
#define TAVRIK_BASE_CONSOLE_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace tavrik::base {

/** The pipe on standard output has no reader any more. Not an error but the request to end: only main handles it, which
 * is why it is not an Error. */
class ClosedPipe : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Writes a text, complete lines or "", to standard output and flushes it. Throws ClosedPipe, and Error when writing
 * fails for another reason. */
void Print(const std::string &text);

/** Writes a text to standard error and flushes it. Failures are ignored. */
void PrintError(const std::string &text);

/** When to use what only a terminal can show, such as colours. */
enum class When { Auto, Always, Never };

/** Colours for parts of a line. */
enum class Colour { Detection, Finding, NearMiss, Error };

/** The text in its colour, or as it is. */
std::string Paint(bool in_colour, Colour colour, std::string_view text);

/** Whether colours are wanted on `stream`. Auto: on terminals that know them, unless the environment has NO_COLOR. */
bool WantsColour(When when, std::FILE *stream);

/** Cuts the beginning of a printable text so that it fits `columns`; "..." replaces what is cut. */
std::string ShortenLeft(std::string_view text, std::size_t columns);

/** A progress line at the bottom of the terminal and the lines above it. Any thread may write. */
class Console {
public:
    /** `progress` returns the line's text for a number of columns; a thread of the console calls it often. Empty: there
     * is no progress line. */
    explicit Console(std::function<std::string(std::size_t columns)> progress);
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    /** As the functions of the same names. */
    void Print(const std::string &text);
    void PrintError(const std::string &text);

    /** Removes the progress line for good. */
    void EndProgress();

private:
    void Draw(std::stop_token stop);
    void Erase();

    std::function<std::string(std::size_t columns)> progress_;
    bool output_is_terminal_;
    std::mutex mutex_; // guards the streams and the line
    bool is_drawn_ = false;
    std::jthread drawer_;
};

} // namespace tavrik::base

#endif
