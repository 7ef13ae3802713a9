/* What the libraries and tools need of the operating system: dynamic libraries, the program's folder, its arguments and
 * its console, requests to end, slow input, files read by position, and new files. Only this component includes the
 * system's headers. */
#ifndef TAVRIK_BASE_SYSTEM_H
#define TAVRIK_BASE_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <vector>

namespace tavrik::base {

/** A loaded dynamic library; unloaded at the end of the object's life. */
class DynamicLibrary {
public:
    /** Loads the library of that absolute path. Throws Error with the system's reason. */
    explicit DynamicLibrary(const std::filesystem::path &path);
    ~DynamicLibrary();
    DynamicLibrary(const DynamicLibrary &) = delete;
    DynamicLibrary &operator=(const DynamicLibrary &) = delete;

    /** The address of an exported symbol, null when there is none of that name. */
    void *Symbol(const char *name) const;

private:
    void *handle_;
};

/** The folder of the running program, absolute. */
std::filesystem::path ProgramFolder();

/** A path in the 8-bit form that the system's own functions take; "" when it has none. */
std::string SystemPath(const std::filesystem::path &path);

/** The command line's arguments, the program's name included, in UTF-8 where the system knows their encoding. */
std::vector<std::string> Arguments(int argc, char **argv);

/** Makes standard output carry UTF-8 and unchanged line feeds. Writing to a pipe without a reader then fails instead of
 * ending the program. */
void PrepareConsole();

/** Whether the error number of a write that failed means that the pipe has no reader any more. */
bool MeansClosedPipe(int error);

/** Whether the stream (stdout, stderr) is a terminal. */
bool IsTerminal(std::FILE *stream);

/** Whether the stream is a terminal that understands escape sequences; enables them where that is needed. */
bool EnableEscapes(std::FILE *stream);

/** The columns of the terminal on standard error; a usual number when they are not known. */
std::size_t TerminalWidth();

/** From now on the first request to end (Ctrl-C, SIGINT, SIGTERM) is only recorded, for Interruption. A second one ends
 * the program as usual. */
void NoteInterruptions();

/** The number of the signal that asked the program to end; 0 while none has. Cheap; from any thread. */
int Interruption();

/** A file, pipe or device that is read from its start to its end and may deliver slowly. */
class InputStream {
public:
    /** Opens the path, or standard input. A pipe without a writer is opened at once; reading waits for one. Throws
     * std::system_error. */
    explicit InputStream(const std::filesystem::path &path);
    static InputStream StandardInput() { return InputStream(); }
    ~InputStream();
    InputStream(const InputStream &) = delete;
    InputStream &operator=(const InputStream &) = delete;

    /** Waits for some bytes, at most `length`, and returns their number; 0 at the end, once Interruption is not 0 and
     * when `give_up`, asked now and then where the system allows it, returns true. Throws std::system_error. */
    std::size_t Read(char *buffer, std::size_t length, const std::function<bool()> &give_up = {});

private:
    InputStream() = default;

    int descriptor_ = 0; // standard input, which is not closed
};

/** An open regular file that is read by position. */
class RegularFile {
public:
    /** A new file in the system's folder for temporary files, without a name that others could open, gone when it is
     * closed however the program ends. Throws std::system_error. */
    static RegularFile Temporary();

    /** Opens a file that exists, without waiting for anything and without changing it. Throws std::system_error; its
     * code is std::errc::not_supported when the path is not (or no longer) a regular file. */
    RegularFile(const std::filesystem::path &path, bool for_writing);
    ~RegularFile();
    RegularFile(const RegularFile &) = delete;
    RegularFile &operator=(const RegularFile &) = delete;

    /** In bytes, when the file was opened; with what was appended. */
    uint64_t size() const { return size_; }

    /** Reads up to `length` bytes at `offset`. Returns how many were read: fewer at the end and after an error, which
     * is then set. */
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error);

    /** Adds bytes at the end, all or, with an error, a part of them. */
    std::error_code Append(const void *bytes, std::size_t length);

private:
    explicit RegularFile(intptr_t handle) : handle_(handle) {}

    intptr_t handle_; // the system's
    uint64_t size_ = 0;
};

/** Creates a file for writing with the user's usual permissions, never executable. Null, with errno set, when that
 * fails; EEXIST when the name is taken; the existing file stays as it is. The caller closes it. */
std::FILE *CreateNewFile(const std::filesystem::path &path);

/** Opens what is there, such as a device or a pipe, for writing. Null, with errno set, when that fails. The caller
 * closes it. */
std::FILE *OpenForWriting(const std::filesystem::path &path);

/** Gives an open file the permissions of the file at `from`, and its owner and group where that is allowed. False, with
 * errno set, when the permissions cannot be given. */
bool CopyPermissions(const std::filesystem::path &from, std::FILE *to);

/** Waits until what was written to the stream, flushed before, is on the disk. False, with errno set, on failure. */
bool FlushToDisk(std::FILE *stream);

/** Gives a file another name at once; a file that had the name is replaced. Returns the system's reason on failure. */
std::error_code RenameOver(const std::filesystem::path &from, const std::filesystem::path &to);

} // namespace tavrik::base

#endif
