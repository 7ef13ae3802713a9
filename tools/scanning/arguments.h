/* Arguments of the command line as values. */
#ifndef TAVRIK_TOOLS_SCANNING_ARGUMENTS_H
#define TAVRIK_TOOLS_SCANNING_ARGUMENTS_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

namespace tavrik::scanning {

/** Keeps the parser from taking a file name "[a,b]" for two: a NUL at its end, which no argument can contain. */
std::string MarkWhole(std::string argument);

/** An argument as the user wrote it. */
std::string WithoutMark(std::string argument);

/** The path that an argument names. */
std::filesystem::path PathOfArgument(const std::string &argument);

/** Parses a number of bytes such as "4096", "64K", "1.5M" or "2GiB"; nothing when the text is not one. K, M and G, also
 * followed by B or iB, are powers of 1024; small letters mean the same. A fraction needs a unit and is rounded down. */
std::optional<uint64_t> ParseSize(const std::string &text);

/** Parses a size of at least one byte; what is wrong goes to the user as a CLI::ValidationError of `option`. */
uint64_t RequireSize(const std::string &option, const std::string &text);

/** Parses a whole number of at least 1, in the same way. */
uint64_t RequireCount(const std::string &option, const std::string &text);

/** An option with a value that `take` keeps. It may be given once. */
CLI::Option *AddValue(CLI::App &app, const char *name, const char *type, const char *about, const char *group,
                      std::function<void(const std::string &text)> take);

} // namespace tavrik::scanning

#endif
