/* All strings of a rule table, found in one pass over a file. */
#ifndef TAVRIK_EVALUATION_STRING_PASS_H
#define TAVRIK_EVALUATION_STRING_PASS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "base/file_bytes.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** A search for many strings at once. Every string is filed under its gram: four bytes of it that few files and few
 * other strings have. A filter tells at most places of a file that no gram is there; at the others the few strings
 * filed there are compared. So the time depends on the file's size, not on the number of strings. Immutable, so that
 * many threads can share one. */
class StringPass {
public:
    /** Finds the region of a string. */
    using RegionOf = std::function<base::Region(const StringFeature &)>;

    /** The strings, in working form, must outlive the object. */
    explicit StringPass(std::span<const StringFeature *const> strings);

    /** Which of the strings are present, in their order: those for which IsStringPresent is true. The region of a
     * string is asked for at most once, and only after its bytes were found somewhere; that of a string too short to
     * have a gram is always asked for. */
    std::vector<bool> Search(base::FileBytes &bytes, const RegionOf &region) const;

    /** The most strings of different bytes that are compared at one place of a file. */
    std::size_t LargestBucket() const;

    /** The memory that the object holds, in bytes. */
    std::size_t MemorySize() const;

private:
    class Run;

    // The bytes of an occurrence, and the strings that ask for them.
    struct Pattern {
        uint32_t bytes = 0;      // in bytes_: the values, then the bits that count
        uint16_t length = 0;     // bytes
        uint16_t gram_at = 0;    // the offset of its gram
        uint32_t first_user = 0; // in users_
        uint32_t user_count = 0;
    };

    struct Entry {
        uint32_t gram = 0;
        uint32_t pattern = 0; // in patterns_
    };

    void File(std::vector<Entry> entries);
    std::pair<uint32_t, uint32_t> EntriesOf(uint32_t gram) const;

    std::vector<const StringFeature *> strings_;
    std::vector<uint8_t> bytes_;
    std::vector<Pattern> patterns_;
    std::vector<uint32_t> users_;   // strings, grouped by pattern
    std::vector<uint32_t> without_; // the strings without a gram
    std::vector<uint64_t> filter_;
    unsigned bucket_shift_ = 0;     // from a hash to its bucket
    std::vector<uint32_t> buckets_; // the first entry of each, and the end of the last
    std::vector<Entry> entries_;    // grouped by bucket
};

} // namespace tavrik::evaluation

#endif
