/* What in a file has contents: payloads, or the whole file as an archive. */
#ifndef TAVRIK_SCANNER_CONTENTS_H
#define TAVRIK_SCANNER_CONTENTS_H

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "base/file_bytes.h"
#include "scanner/payload.h"
#include "scanner/payloads/container.h"
#include "scanner/scan.h"

namespace tavrik::scanner {

/** Something in a file that can be opened. */
struct ContentsPlace {
    std::string description;                // "NSIS 3 Unicode, LZMA solid", "zip archive"
    std::optional<payloads::Extent> extent; // nothing: the file as a whole is an archive
};

/** The archive or the payload that a source which is no PE file is as a whole; nothing when it is none. Reads a few
 * bytes of what is none. */
std::optional<ContentsPlace> WholeContents(base::ByteSource &source);

/** The bytes that payloads take; of one whose structure could not be read, the first. */
std::vector<base::Region> RegionsOf(std::span<const Payload> payloads);

/** The places of payloads whose structure is known. */
std::vector<ContentsPlace> PlacesOf(std::span<const Payload> payloads);

/** What has contents in a file of any kind: in a PE file the payloads that the locators find, then those of builds that
 * no entry knows. Throws base::Error when the headers cannot be read. */
std::vector<ContentsPlace> ContentsOf(const Scanner &scanner, base::ByteSource &source);

/** Opens a place. Never null; what cannot be opened has an error(). The source must outlive the object. */
std::unique_ptr<payloads::Container> Open(base::ByteSource &source, const ContentsPlace &place);

} // namespace tavrik::scanner

#endif
