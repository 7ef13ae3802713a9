/* Writing located payloads into files of their own. */
#ifndef TAVRIK_SCANNER_CARVE_H
#define TAVRIK_SCANNER_CARVE_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <unordered_map>

#include "base/byte_source.h"

namespace tavrik::scanner {

/** Writes payloads into one folder, each into a new file; existing files are never overwritten. */
class Carver {
public:
    /** Creates the folder when there is none. Throws base::Error when payloads cannot be written to it. */
    explicit Carver(std::filesystem::path folder);

    /** Writes the bytes of `source` from `offset` to its end; `kind` is the PayloadKind. The name of the
     * new file is that of `file`, the offset and the kind's extension, "setup.exe.0x1a00.bin", with a number before the
     * extension when that name is taken. Returns its path. Throws base::Error, whose text names the new file, and
     * leaves no incomplete file. */
    std::filesystem::path Carve(base::ByteSource &source, const std::filesystem::path &file, uint64_t offset,
                                uint32_t kind);

private:
    std::filesystem::path folder_;
    std::unordered_map<std::string, unsigned> next_numbers_; // by the beginning of the name, of names that were taken
};

/** A file's name without characters that are special to a shell, a terminal or a system, at most 200 bytes long. */
std::string SafeName(const std::filesystem::path &file);

} // namespace tavrik::scanner

#endif
