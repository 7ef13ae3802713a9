/* Writing located payloads into files of their own. */
#ifndef TAVRIK_SCANNER_CARVE_H
#define TAVRIK_SCANNER_CARVE_H

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "base/byte_source.h"

namespace tavrik::scanner {

/** A payload could not be written; the text says what and why. */
class CarveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Writes payloads into one folder, each into a new file: nothing is ever overwritten. */
class Carver {
public:
    /** Makes the folder when there is none. Throws CarveError. */
    explicit Carver(std::filesystem::path folder);

    /** Writes the bytes of `source` from `offset` to its end; `kind` is the PayloadKind. The new file is called like
     * `file`, the offset and the kind's extension, "setup.exe.0x1a00.bin", with a number before the extension when
     * there is something of that name. Returns its path. Throws CarveError and leaves no part of a file. */
    std::filesystem::path Carve(base::ByteSource &source, const std::filesystem::path &file, uint64_t offset,
                                uint32_t kind);

private:
    std::filesystem::path folder_;
    std::unordered_map<std::string, unsigned> next_numbers_; // of names that were met again
};

/** A file's name without what a shell, a terminal or a system could take amiss, at most 200 bytes long. */
std::string SafeName(const std::filesystem::path &file);

} // namespace tavrik::scanner

#endif
