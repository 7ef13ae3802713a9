/* From the names in a container, which are hostile, to names of files to write. */
#ifndef TAVRIK_SCANNER_MEMBER_PATH_H
#define TAVRIK_SCANNER_MEMBER_PATH_H

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tavrik::scanner {

/** The longest name of a file or folder, in bytes: file systems allow 255, and a number may be added. */
inline constexpr std::size_t kLongestComponent = 200;

/** The most folders on the way to a member; of a longer path the last ones are kept. */
inline constexpr std::size_t kMostFolders = 32;

/** The longest path below the folder that is written to, in bytes; of a longer one the last components are kept. */
inline constexpr std::size_t kLongestMemberPath = 1000;

/** A name that no system treats specially: valid UTF-8 without control characters and those of <>:"/\|?*, not a device
 * such as CON or com1.txt, no dot or blank at its end, at most kLongestComponent bytes. Never "", "." or "..". */
std::string SafeComponent(std::string_view name);

/** The components of a member's path, each safe; '/' and '\\' separate. What makes a path absolute is dropped; ".." is
 * a name like others. Never empty. */
std::vector<std::string> SafeComponents(std::string_view path);

/** Gives each member of a container a path of its own that differs from all others also where a system does not tell
 * capital letters (of ASCII) from small ones. */
class MemberPaths {
public:
    /** The components for a file; those of its folders are the ones that other members got for the same folders. */
    std::vector<std::string> ForFile(std::string_view path);

    /** The components for a folder: the same ones for the same path. */
    std::vector<std::string> ForFolder(std::string_view path);

    /** Another path for a file whose path ForFile gave but which is taken in the file system. */
    std::vector<std::string> Another(std::vector<std::string> components);

private:
    struct Name {
        bool is_folder;
        std::string shown;   // as it was given out
        unsigned number = 2; // of the next file or folder that wants the name
    };

    std::string EnterFolders(std::vector<std::string> &components, std::size_t count);
    std::string TakeName(const std::string &folder, std::string &name, bool is_folder);

    std::unordered_map<std::string, Name> names_; // by the path in small letters
};

} // namespace tavrik::scanner

#endif
