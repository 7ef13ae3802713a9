/* A resource directory, written piece by piece so that it can be malformed at will. */
#ifndef TAVRIK_TESTS_SUPPORT_RESOURCE_TREE_H
#define TAVRIK_TESTS_SUPPORT_RESOURCE_TREE_H

#include <initializer_list>
#include <utility>

#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tests/support/pe_file.h"

namespace tavrik::tests {

/** Marks the offset of a subdirectory. */
inline constexpr uint32_t kSub = 0x80000000;

/** Writes at a file offset; all places are relative to it. */
class ResourceTree {
public:
    ResourceTree(RecordingStream &stream, uint32_t base) : stream_(stream), base_(base) {}

    /** A directory of (name, target) pairs, the first `named` of which count as named. */
    void Directory(uint32_t at, std::initializer_list<std::pair<uint32_t, uint32_t>> entries, uint16_t named = 0) {
        Count(at, named, static_cast<uint16_t>(entries.size() - named));
        for (at += 16; const auto &[name, target] : entries) {
            stream_.Put(base_ + at, Bytes(name) + Bytes(target));
            at += 8;
        }
    }

    /** A directory's two counts. */
    void Count(uint32_t at, uint16_t named, uint16_t ids) { stream_.Put(base_ + at + 12, Bytes(named) + Bytes(ids)); }

    /** A data entry. */
    void Data(uint32_t at, uint32_t rva, uint32_t size = 1) {
        stream_.Put(base_ + at, Bytes(tavrik2::ResourceDataEntry{rva, size, 2, 3}));
    }

private:
    RecordingStream &stream_;
    uint32_t base_;
};

} // namespace tavrik::tests

#endif
