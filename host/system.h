/* What the host needs of the operating system: dynamic libraries, the program's place, its arguments and its console.
 */
#ifndef TAVRIK_HOST_SYSTEM_H
#define TAVRIK_HOST_SYSTEM_H

#include <filesystem>
#include <string>
#include <vector>

namespace tavrik::host {

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

/** Makes standard output carry UTF-8 and line feeds as they are written. */
void PrepareConsole();

} // namespace tavrik::host

#endif
