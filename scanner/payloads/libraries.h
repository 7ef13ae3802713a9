/* The libraries that read archives and compressed data. */
#ifndef TAVRIK_SCANNER_PAYLOADS_LIBRARIES_H
#define TAVRIK_SCANNER_PAYLOADS_LIBRARIES_H

#include <string>

namespace tavrik::scanner::payloads {

/** Those that this build has, with the versions that are loaded: "libarchive 3.6.2, liblzma 5.4.1"; "no libarchive, no
 * liblzma" without them. */
std::string LibraryVersions();

} // namespace tavrik::scanner::payloads

#endif
