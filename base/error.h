/* The one exception type for what goes wrong outside the program. */
#ifndef TAVRIK_BASE_ERROR_H
#define TAVRIK_BASE_ERROR_H

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavrik::base {

/** The kinds of failures that a program may tell apart. */
enum class ErrorCode {
    Failed, // none of the others
    NotFound,
    PermissionDenied,
    IsFolder,   // where a file is wanted
    NotRegular, // a device, pipe or socket
    LinkLoop,
    ReadFailed,
    TooLarge,
    TimedOut,
    OutOfMemory,
    NotPe,
    NotCarved,
    Encrypted,
    NotUnpacked, // a member of a container
    Cancelled,
    ModuleMissing,
    ModuleUnloadable,  // the system refuses to load it
    ModuleForeign,     // it lacks an export
    ModulePath,        // its folder's path is too long, or has characters that it cannot take
    CompanionMissing,  // a file that the module needs is not beside it
    CompanionUnusable, // the same file cannot be loaded, or lacks a function
    ModuleInit,        // the module does not initialise for another reason
    Count
};

/** A code's word, such as "not-found". */
std::string_view ErrorCodeName(ErrorCode code);

/** A file, folder, list, module or argument makes it impossible to do what was asked.
 *
 * The convention of the libraries and tools outside the module:
 * - The text is one line for the user without a full stop: what failed, the file, and after a semicolon the remedy.
 *   A program's main prints "PROGRAM: what()" and ends with its exit code for errors.
 * - Where one file of many fails, the failure is data: a status and the reason() without the file's name, because the
 *   report names the file. A function that has one file to work on throws; the one that has many catches and records.
 * - Code that must not throw, such as reads on behalf of the module, keeps the reason of its first failure as a text;
 *   "" means that nothing has failed (ByteSource::error).
 * - Operating system errors are std::system_error within base and become an Error where the file and the remedy are
 *   known. A violated precondition is a std::logic_error: nothing catches it but main. */
class Error : public std::runtime_error {
public:
    /** A failure whose text names everything there is to name. */
    explicit Error(const std::string &text, ErrorCode code = ErrorCode::Failed)
        : std::runtime_error(text), reason_(text), code_(code) {}

    /** A failure with one file: what() is "FILE: reason", the file's name made printable. */
    Error(const std::filesystem::path &file, const std::string &reason, ErrorCode code = ErrorCode::Failed);

    /** The text without the file's name. */
    const std::string &reason() const { return reason_; }

    ErrorCode code() const { return code_; }

private:
    std::string reason_;
    ErrorCode code_ = ErrorCode::Failed;
};

} // namespace tavrik::base

#endif
