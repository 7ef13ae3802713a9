/* What a store keeps of one file. */
#ifndef TAVRIK_STORE_STORED_FILE_H
#define TAVRIK_STORE_STORED_FILE_H

#include <array>
#include <bitset>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "base/sha256.h"
#include "rules/names.h"
#include "store/tokens.h"
#include "tavrik2/section_header.h"

namespace tavrik::store {

/** The size and the time of the last change, by which a file is known to be the same as before. */
struct Stamp {
    uint64_t size = 0; // bytes
    int64_t time = 0;  // ticks of the system's file clock

    bool operator==(const Stamp &) const = default;
};

/** The stamp of a file as it is now. Throws base::Error. */
Stamp StampOf(const std::filesystem::path &path);

/** One file's identity and features. */
struct StoredFile {
    std::string path; // absolute; as base::PathText gives it
    Stamp stamp;
    base::Sha256::Digest digest = {}; // zeros: it was not computed
    bool is_pe = false;
    std::bitset<rules::kHeaderFieldCount> has; // which header values are there
    std::array<uint32_t, rules::kHeaderFieldCount> header = {};
    std::vector<SectionHeader> sections; // a name's bytes after its first NUL are NULs
    FileTokens tokens;
};

/** Reads a file's features and, unless it is not wanted, its digest, for which all of the file is read. Throws
 * base::Error when a read fails. */
StoredFile ReadFeatures(base::ByteSource &source, bool with_digest = true);

/** The same for a file on the disk, with its path and stamp. */
StoredFile ReadFeatures(const std::filesystem::path &path, bool with_digest = true);

} // namespace tavrik::store

#endif
