/* The version of these programs and of the libraries in them. */
#ifndef TAVRIK_BASE_VERSION_H
#define TAVRIK_BASE_VERSION_H

#include <string>
#include <string_view>

namespace tavrik::base {

/** The version that the build gives to the whole tree, such as "1.0.0". */
extern const char kVersion[];

/** The libraries that are in every program, with their versions: "fmt 9.1.0, …". */
std::string LibraryVersions();

/** The library that tavrik-rules and tavrik-corpus write JSON with; reports are written by base/json.h. */
std::string JsonLibraryVersion();

/** What --version prints of any program: "PROGRAM VERSION" and a line with the libraries, `more` among them, each with
 * its line feed. */
std::string VersionText(std::string_view program, std::string_view more = "");

} // namespace tavrik::base

#endif
