/* What the host needs of the operating system: dynamic libraries, the program's place, its arguments and its console,
 * requests to end, input that may come slowly, and files that are new. */
#ifndef TAVRIK_BASE_SYSTEM_H
#define TAVRIK_BASE_SYSTEM_H

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::base {

/** A loaded dynamic library; unloaded at the end of the object's life. */
class DynamicLibrary {
public:
    /** Loads the library of that absolute path. Throws std::runtime_error with the system's reason. */
    explicit DynamicLibrary(const std::filesystem::path &path);
    ~DynamicLibrary();
    DynamicLibrary(const DynamicLibrary &) = delete;
    DynamicLibrary &operator=(const DynamicLibrary &) = delete;

    /** The address of an exported symbol, null when there is none of that name. */
    void *Symbol(const char *name) const;

private:
    void *handle_;
};

/** The folder that the running program stands in, absolute. */
std::filesystem::path ProgramFolder();

/** A path in the 8-bit form that the system's own functions take; "" when it has none. */
std::string SystemPath(const std::filesystem::path &path);

/** The command line's arguments, the program's name included, in UTF-8 where the system knows their encoding. */
std::vector<std::string> Arguments(int argc, char **argv);

/** Makes standard output carry UTF-8 and line feeds as they are written. Writing to a pipe that nobody reads any more
 * then fails instead of ending the program. */
void PrepareConsole();

/** Whether the error number of a write that failed means that nobody reads the pipe any more. */
bool MeansClosedPipe(int error);

/** Whether the stream (stdout, stderr) is a terminal. */
bool IsTerminal(std::FILE *stream);

/** Whether the stream is a terminal that understands escape sequences; asks the terminal to, where it must be asked. */
bool EnableEscapes(std::FILE *stream);

/** The columns of the terminal behind standard error; a usual number when they are not known. */
std::size_t TerminalWidth();

/** From now on the first request to end (Ctrl-C, SIGINT, SIGTERM) is only noted, for Interruption. A second one ends
 * the program as usual. */
void NoteInterruptions();

/** The number of the signal that asked the program to end; 0 while none has. Cheap; from any thread. */
int Interruption();

/** A file, pipe or device that is read from its start to its end, however slowly it comes. */
class InputStream {
public:
    /** Opens the path, or standard input. Throws std::system_error. */
    explicit InputStream(const std::filesystem::path &path);
    static InputStream StandardInput() { return InputStream(); }
    ~InputStream();
    InputStream(const InputStream &) = delete;
    InputStream &operator=(const InputStream &) = delete;

    /** Waits for some bytes, at most `length`, and returns their number; 0 at the end and once Interruption is not 0.
     * Throws std::system_error. */
    std::size_t Read(char *buffer, std::size_t length);

private:
    InputStream() = default;

    int descriptor_ = 0; // standard input, which is not closed
};

/** Creates a file for writing, open to its user as others are but never executable. Null, with errno set, when that
 * fails; EEXIST when there is something of that name, which stays as it is. The caller closes it. */
std::FILE *CreateNewFile(const std::filesystem::path &path);

} // namespace tavrik::base

#endif
