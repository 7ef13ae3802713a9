/* Writing located payloads into files of their own. */
#ifndef TAVRIK_SCANNER_CARVE_H
#define TAVRIK_SCANNER_CARVE_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <unordered_map>

#include "base/byte_source.h"
#include "base/output_folder.h"
#include "scanner/payload.h"

namespace tavrik::scanner {

/** What is carved. */
struct CarveSettings {
    uint64_t limit = uint64_t{256} << 20; // in bytes; larger payloads are not carved
    bool with_tail = false;               // with what follows the payload, to the end of the file
};

/** Writes payloads into one folder, each into a new file; existing files are never overwritten, links in the folder
 * never followed, and the same bytes never written twice. */
class Carver {
public:
    /** Creates the folder when there is none; a link to a folder is followed once, now. Throws base::Error when
     * payloads cannot be written to it. */
    explicit Carver(const std::filesystem::path &folder, const CarveSettings &settings = {});

    /** Writes the payload's bytes that are there; of one whose structure is not known, all up to the end of the file.
     * The name of the new file is that of `file`, the offset and the format's extension, "setup.exe.0x1a00.nsis", or
     * "bin", with a number before the extension when that name is taken. Sets `carved` of the payload, or `not_carved`
     * where the limit forbids it. Throws base::Error, whose text names the new file, and leaves no incomplete file. */
    void Carve(base::ByteSource &source, const std::filesystem::path &file, Payload &payload);

private:
    base::OutputFolder folder_;
    CarveSettings settings_;
    std::unordered_map<std::string, unsigned> next_numbers_;            // by the beginning of the name, of names taken
    std::map<std::string, std::filesystem::path, std::less<>> written_; // by the SHA-256 of the bytes
};

/** A file's name without characters that are special to a shell, a terminal or a system, at most 200 bytes long. */
std::string SafeName(const std::filesystem::path &file);

} // namespace tavrik::scanner

#endif
