#include "scanner/payloads/libraries.h"

#ifdef TAVRIK_HAS_ARCHIVE
#include <archive.h>
#endif
#ifdef TAVRIK_HAS_LZMA
#include <lzma.h>
#endif

namespace tavrik::scanner::payloads {

std::string LibraryVersions() {
#ifdef TAVRIK_HAS_ARCHIVE
    std::string versions = archive_version_string(); // with its name
#else
    std::string versions = "no libarchive";
#endif
#ifdef TAVRIK_HAS_LZMA
    versions += std::string(", liblzma ") + lzma_version_string();
#else
    versions += ", no liblzma";
#endif
    return versions;
}

} // namespace tavrik::scanner::payloads
