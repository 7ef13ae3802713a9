#include "base/console.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "base/characters.h"
#include "base/error.h"
#include "base/system.h"

namespace tavrik::base {

namespace {

constexpr std::chrono::milliseconds kRedraw{100};

constexpr char kEraseLine[] = "\r\x1b[K";
constexpr char kPlain[] = "\x1b[0m";

const char *Escape(Colour colour) {
    switch (colour) {
    case Colour::Detection:
        return "\x1b[1;31m"; // bold red
    case Colour::Finding:
        return "\x1b[33m"; // yellow
    case Colour::NearMiss:
        return "\x1b[36m"; // cyan
    default:
        return "\x1b[31m"; // red
    }
}

// Characters from U+0800 on may be shown two columns wide.
constexpr std::size_t ColumnsOf(char first_byte) {
    return IsUtf8Continuation(first_byte) ? 0 : static_cast<unsigned char>(first_byte) >= 0xE0 ? 2 : 1;
}

} // namespace

// Flushed at once, so that a reader at the other end of a pipe sees each line as it comes and the lines of both streams
// keep their order.
void Print(const std::string &text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (written && std::fflush(stdout) == 0)
        return;
    if (MeansClosedPipe(errno))
        throw ClosedPipe("nobody reads standard output");
    throw Error("standard output cannot be written: " + std::generic_category().message(errno));
}

void PrintError(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

std::string Paint(bool in_colour, Colour colour, std::string_view text) {
    return in_colour ? fmt::format("{}{}{}", Escape(colour), text, kPlain) : std::string(text);
}

bool WantsColour(When when, std::FILE *stream) {
    if (when != When::Auto) {
        EnableEscapes(stream);
        return when == When::Always;
    }
    const char *no_color = std::getenv("NO_COLOR");
    return (no_color == nullptr || *no_color == '\0') && EnableEscapes(stream);
}

std::string ShortenLeft(std::string_view text, std::size_t columns) {
    constexpr std::string_view kCut = "...";
    std::size_t width = 0;
    for (const char byte : text)
        width += ColumnsOf(byte);
    if (width <= columns)
        return std::string(text);
    while (!text.empty() && (width + kCut.size() > columns || IsUtf8Continuation(text.front()))) {
        width -= ColumnsOf(text.front());
        text.remove_prefix(1);
    }
    return columns < kCut.size() ? "" : fmt::format("{}{}", kCut, text);
}

Console::Console(std::function<std::string(std::size_t columns)> progress)
    : progress_(std::move(progress)), output_is_terminal_(IsTerminal(stdout)) {
    if (progress_)
        drawer_ = std::jthread([this](std::stop_token stop) { Draw(std::move(stop)); });
}

Console::~Console() {
    EndProgress();
}

void Console::Draw(std::stop_token stop) {
    std::condition_variable_any stopped;
    std::unique_lock lock(mutex_);
    // Waits before it draws, so that a short run shows no line.
    while (!stopped.wait_for(lock, stop, kRedraw, [&stop] { return stop.stop_requested(); })) {
        base::PrintError(kEraseLine + progress_(TerminalWidth() - 1));
        is_drawn_ = true;
    }
}

void Console::Erase() {
    if (std::exchange(is_drawn_, false))
        base::PrintError(kEraseLine);
}

void Console::Print(const std::string &text) {
    const std::lock_guard lock(mutex_);
    if (output_is_terminal_ && !text.empty())
        Erase();
    base::Print(text);
}

void Console::PrintError(const std::string &text) {
    const std::lock_guard lock(mutex_);
    Erase();
    base::PrintError(text);
}

void Console::EndProgress() {
    if (drawer_.joinable()) {
        drawer_.request_stop();
        drawer_.join();
    }
    const std::lock_guard lock(mutex_);
    Erase();
}

} // namespace tavrik::base
