/* All strings of a rule table, found in one pass over a file. */
#ifndef TAVRIK_EVALUATION_STRING_PASS_H
#define TAVRIK_EVALUATION_STRING_PASS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "base/file_bytes.h"
#include "evaluation/gram_search.h"
#include "evaluation/pattern_keys.h"
#include "evaluation/string_pattern.h"
#include "evaluation/window_search.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** A search for many strings at once. Every string is filed under its gram: four bytes of it that few files and few
 * other strings have; or, where nearly all strings are long enough, under four of its windows, which are longer and
 * need a look at every fourth place only. A filter tells at most places of a file that none is there; at the others the
 * few strings filed there are compared. So the time depends on the file's size, not on the number of strings.
 * Immutable, so that many threads can share one. */
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

    /** The most strings of different bytes that are compared at one place of a file by its gram. */
    std::size_t LargestBucket() const;

    /** The memory that the object holds, in bytes. */
    std::size_t MemorySize() const;

private:
    class Run;

    // The strings that ask for the same bytes. In pool_ its values follow, then the bits of them that count.
    struct Pattern {
        uint32_t number = 0;
        uint32_t first_user = 0; // in users_
        uint32_t user_count = 0;
    };

    // A pattern under one of its grams or windows, and four more of its bytes that are compared before the others.
    struct Entry {
        uint32_t gram = 0;       // or the window's number
        uint32_t check = 0;      // folded like a gram; 0 for bytes that do not count
        uint32_t pattern = 0;    // in pool_
        uint8_t gram_at = 0;     // the gram's or window's offset in the pattern
        uint8_t check_at = 0;    // that of the other bytes
        uint8_t check_bytes = 0; // a bit for each of them that counts
        uint8_t last = 0;        // the pattern's length less one
    };

    // The entries whose grams' hashes begin with the same bits: from `first` up to that of the next bucket.
    struct Bucket {
        uint32_t first = 0;     // in entries_
        uint32_t next_bits = 0; // a bit for each value of the bits after these that a hash has
    };

    // Entries by the hash of their gram or window.
    struct Table {
        static constexpr unsigned kNextBits = 5;

        void Sort();
        uint32_t NextBits(uint32_t hash) const { return hash << (32 - bucket_shift) >> (32 - kNextBits); }
        const Bucket *BucketOf(uint32_t hash) const { return &buckets[hash >> bucket_shift]; }
        std::vector<uint32_t> Keys() const;

        unsigned bucket_shift = 0; // from a hash to its bucket
        std::vector<Bucket> buckets;
        std::vector<Entry> entries; // grouped by bucket
    };

    Pattern PatternOf(const Entry &entry) const;
    void AddPattern(const StringPattern &pattern, std::span<const uint32_t> users, KeyChooser &chooser);
    uint32_t StorePattern(const StringPattern &pattern, std::span<const uint32_t> users);

    std::vector<const StringFeature *> strings_;
    std::vector<uint8_t> pool_; // patterns
    uint32_t pattern_count_ = 0;
    std::vector<uint32_t> users_;   // strings, grouped by pattern
    std::vector<uint32_t> without_; // the strings without a gram
    bool uses_windows_ = false;     // for the strings that have some
    Table by_gram_;
    Table by_window_;
    std::unique_ptr<const GramSearch> grams_;     // null when no string is filed under a gram
    std::unique_ptr<const WindowSearch> windows_; // null when none is under windows
};

} // namespace tavrik::evaluation

#endif
