/* The version resource of a program. */
#ifndef TAVRIK_PE_VERSION_INFO_H
#define TAVRIK_PE_VERSION_INFO_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tavrik::pe {

/** Strings beyond these do not count. */
inline constexpr std::size_t kMostVersionStrings = 256;

/** The texts in a version resource, in UTF-8. What cannot be converted is not there. */
struct VersionInfo {
    std::string file_version; // of the fixed part, "1.2.3.4"; "" without one
    std::string product_version;
    std::vector<std::pair<std::string, std::string>> strings; // key and value of all string tables
};

/** Reads a version resource of any content. */
VersionInfo ReadVersionInfo(std::span<const uint8_t> bytes);

} // namespace tavrik::pe

#endif
