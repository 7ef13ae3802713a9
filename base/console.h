/* Standard output and standard error of a long run: lines, and below them one that shows how far it is. */
#ifndef TAVRIK_BASE_CONSOLE_H
#define TAVRIK_BASE_CONSOLE_H

#include <cstddef>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace tavrik::base {

/** Nobody reads standard output any more. */
class ClosedPipe : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Writes a text, complete lines or "", to standard output, at once. Throws ClosedPipe, and std::runtime_error when
 * that fails otherwise. */
void Print(const std::string &text);

/** Writes a text to standard error, at once; that nobody can read it is no reason to stop. */
void PrintError(const std::string &text);

/** When something is done that only a terminal shows well. */
enum class When { Auto, Always, Never };

/** Colours for parts of a line. */
enum class Colour { Detection, Finding, Error };

/** The text in its colour, or as it is. */
std::string Paint(bool in_colour, Colour colour, std::string_view text);

/** Whether colours are wanted on `stream`. Auto: on terminals that know them, unless the environment has NO_COLOR. */
bool WantsColour(When when, std::FILE *stream);

/** Cuts a text that is safe to show to so many columns; what is missing at its beginning is shown by "...". */
std::string ShortenLeft(std::string_view text, std::size_t columns);

/** A line at the bottom of the terminal that tells how far the run is, and the lines above it. Any thread may write. */
class Console {
public:
    /** `progress` makes the line's text for so many columns; it is called often, by a thread of the console. None:
     * there is no such line. */
    explicit Console(std::function<std::string(std::size_t columns)> progress);
    ~Console();
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    /** As the functions of the same name. */
    void Print(const std::string &text);
    void PrintError(const std::string &text);

    /** Takes the line away for good. */
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
