#include "evaluation/string_pass.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <queue>
#include <string>
#include <tuple>
#include <unordered_map>

#include "evaluation/string_pattern.h"
#include "evaluation/string_search.h"

namespace tavrik::evaluation {

namespace {

constexpr std::size_t kGramSize = 4;

// Grams are compared without regard to case; the other bytes that this makes alike are told apart later.
constexpr uint32_t kFold = kCaseBit * 0x01010101U;

uint32_t Fold(const uint8_t *bytes) {
    uint32_t gram;
    std::memcpy(&gram, bytes, sizeof(gram));
    return gram | kFold;
}

constexpr uint32_t kNoGram = 0; // not folded

constexpr uint32_t Hash(uint32_t gram) {
    return gram * 0x9E3779B1U;
}

// The filter: a bit for each value of a hash's upper bits.
constexpr unsigned kFilterBits = 21; // 256 KiB in all, to stay in a second-level cache
using FilterWord = uint64_t;
constexpr unsigned kWordBits = 64;

constexpr std::size_t WordOf(uint32_t hash) {
    return (hash >> (32 - kFilterBits)) / kWordBits;
}

constexpr unsigned BitOf(uint32_t hash) {
    return (hash >> (32 - kFilterBits)) % kWordBits;
}

inline bool MayOccur(const FilterWord *filter, uint32_t hash) {
    return (filter[WordOf(hash)] >> BitOf(hash) & 1) != 0;
}

// A gram of a pattern: at most one of its bytes is open, a wildcard or after the pattern's end.
struct Gram {
    std::size_t at = 0;
    uint32_t folded = 0; // 0 in place of the open byte
    int open = -1;       // which byte is open; -1: none
    int rarity = 0;      // bits
};

constexpr int kOpenByteCost = 4; // bits of rarity that a gram without an open byte may lack

// Calls `visit` with every gram of the pattern.
template <typename Visit>
void ForGrams(const StringPattern &pattern, const Visit &visit) {
    for (std::size_t at = 0; at + kGramSize <= pattern.length + 1; ++at) {
        Gram gram;
        gram.at = at;
        int open = 0;
        for (std::size_t i = 0; i < kGramSize; ++i) {
            const std::size_t place = at + i;
            if (place >= pattern.length || pattern.care[place] == 0) {
                gram.open = static_cast<int>(i);
                gram.rarity -= kOpenByteCost;
                ++open;
                continue;
            }
            const uint8_t value = pattern.value[place];
            // Programs have runs of one byte.
            gram.rarity += i > 0 && value == pattern.value[place - 1] ? 1 : Rarity(value);
            gram.folded |= static_cast<uint32_t>(value | kCaseBit) << 8 * i;
        }
        if (open <= 1)
            visit(gram);
    }
}

// How many patterns have a gram; those of one hash are counted together, which is near enough.
class Sharers {
public:
    void Add(const Gram &gram) { ++counts_[Hash(gram.folded) >> kShift]; }

    // What filing a pattern under the gram costs is how often the gram is met times how many patterns are then
    // compared. The smaller, the larger is this number, in bits.
    int Worth(const Gram &gram) const {
        return gram.rarity - static_cast<int>(std::bit_width(counts_[Hash(gram.folded) >> kShift]));
    }

private:
    static constexpr unsigned kShift = 16;
    std::vector<uint32_t> counts_ = std::vector<uint32_t>((UINT32_MAX >> kShift) + 1);
};

} // namespace

StringPass::StringPass(std::span<const StringFeature *const> strings) : strings_(strings.begin(), strings.end()) {
    // Strings of the same bytes share a pattern.
    std::map<std::string, std::vector<uint32_t>> users;
    Sharers sharers;
    for (uint32_t i = 0; i < strings_.size(); ++i) {
        const StringPattern pattern(*strings_[i]);
        std::string bytes(reinterpret_cast<const char *>(pattern.value.data()), pattern.length);
        bytes.append(reinterpret_cast<const char *>(pattern.care.data()), pattern.length);
        std::vector<uint32_t> &of_pattern = users[std::move(bytes)];
        of_pattern.push_back(i);
        if (of_pattern.size() == 1)
            ForGrams(pattern, [&](const Gram &gram) { sharers.Add(gram); });
    }
    std::vector<Entry> entries;
    for (const auto &[bytes, of_pattern] : users) {
        std::optional<Gram> best;
        ForGrams(StringPattern(*strings_[of_pattern.front()]), [&](const Gram &gram) {
            if (!best || sharers.Worth(gram) > sharers.Worth(*best))
                best = gram;
        });
        if (!best) {
            without_.insert(without_.end(), of_pattern.begin(), of_pattern.end());
            continue;
        }
        const auto pattern = static_cast<uint32_t>(patterns_.size());
        patterns_.push_back({static_cast<uint32_t>(bytes_.size()), static_cast<uint16_t>(bytes.size() / 2),
                             static_cast<uint16_t>(best->at), static_cast<uint32_t>(users_.size()),
                             static_cast<uint32_t>(of_pattern.size())});
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        users_.insert(users_.end(), of_pattern.begin(), of_pattern.end());
        if (best->open < 0) {
            entries.push_back({best->folded, pattern});
            continue;
        }
        for (uint32_t byte = 0; byte <= UINT8_MAX; ++byte)
            if ((byte & kCaseBit) != 0)
                entries.push_back({best->folded | byte << 8 * best->open, pattern});
    }
    File(std::move(entries));
}

void StringPass::File(std::vector<Entry> entries) {
    filter_.assign(WordOf(UINT32_MAX) + 1, 0);
    // As many buckets as entries, or up to twice as many.
    bucket_shift_ = 32U - static_cast<unsigned>(std::bit_width(entries.size() | 1));
    std::ranges::sort(entries, {}, [](const Entry &entry) { return std::tuple(Hash(entry.gram), entry.pattern); });
    buckets_.assign((std::size_t{UINT32_MAX} >> bucket_shift_) + 2, 0);
    for (const Entry &entry : entries) {
        const uint32_t hash = Hash(entry.gram);
        filter_[WordOf(hash)] |= FilterWord{1} << BitOf(hash);
        ++buckets_[(hash >> bucket_shift_) + 1];
    }
    for (std::size_t i = 1; i < buckets_.size(); ++i)
        buckets_[i] += buckets_[i - 1];
    entries_ = std::move(entries);
}

std::pair<uint32_t, uint32_t> StringPass::EntriesOf(uint32_t gram) const {
    const uint32_t bucket = Hash(gram) >> bucket_shift_;
    uint32_t begin = buckets_[bucket];
    const uint32_t bucket_end = buckets_[bucket + 1];
    while (begin < bucket_end && entries_[begin].gram != gram)
        ++begin;
    uint32_t end = begin;
    while (end < bucket_end && entries_[end].gram == gram)
        ++end;
    return {begin, end};
}

// One search.
class StringPass::Run {
public:
    Run(const StringPass &pass, const RegionOf &region)
        : pass_(pass), region_(region), found_(pass.strings_.size()), places_(pass.strings_.size()),
          is_idle_(pass.entries_.size()) {}

    void SearchPiece(std::span<const uint8_t> piece, uint64_t offset) {
        piece_ = piece;
        offset_ = offset;
        std::size_t at = 0;
        while (at + kGramSize <= piece.size()) {
            Wake(offset + at);
            at = SearchFrom(at);
        }
        // The last bytes may begin grams whose open byte lies after them.
        uint8_t tail[2 * kGramSize] = {};
        const std::size_t rest = piece.size() - at;
        std::memcpy(tail, piece.data() + at, rest);
        for (std::size_t i = 0; i < rest; ++i) {
            Wake(offset + at + i);
            CompareGram(Fold(tail + i), at + i);
        }
    }

    std::vector<bool> TakeFound() { return std::move(found_); }

private:
    // What is known of a string: nothing, that it needs no more looking at, or (from kFirstStarts on) where it counts.
    static constexpr uint32_t kUnknown = 0;
    static constexpr uint32_t kSettled = 1;
    static constexpr uint32_t kFirstStarts = 2;

    static constexpr uint64_t kNever = UINT64_MAX;
    using Waking = std::pair<uint64_t, uint32_t>; // offset in the file, a gram's first entry

    // Looks at the grams that begin at `at` and after it up to the next wake; returns the place that comes next.
    std::size_t SearchFrom(std::size_t at) {
        const FilterWord *const filter = pass_.filter_.data();
        const uint8_t *const bytes = piece_.data();
        uint32_t idle = kNoGram;
        for (std::size_t end = NextWake(); at < end; ++at) {
            const uint32_t gram = Fold(bytes + at);
            // Runs of one byte repeat a gram.
            if (!MayOccur(filter, Hash(gram)) || gram == idle) [[likely]]
                continue;
            if (CompareGram(gram, at)) {
                idle = gram;
                end = NextWake();
            }
        }
        return at;
    }

    // Where in the piece an idle gram must be looked at again, or where its last whole gram ends.
    std::size_t NextWake() const {
        const std::size_t end = piece_.size() - kGramSize + 1;
        return wakes_.empty() ? end : static_cast<std::size_t>(std::min<uint64_t>(end, wakes_.top().first - offset_));
    }

    // Compares the strings under a gram that is in the piece at `at`. Returns whether the gram is idle: its strings
    // need no comparing before the next wake.
    bool CompareGram(uint32_t gram, std::size_t at) {
        const auto [begin, end] = pass_.EntriesOf(gram);
        if (begin == end || is_idle_[begin])
            return true;
        uint64_t wake = kNever;
        for (uint32_t i = begin; i < end; ++i) {
            const Pattern &pattern = pass_.patterns_[pass_.entries_[i].pattern];
            const std::span users(pass_.users_.data() + pattern.first_user, pattern.user_count);
            if (at >= pattern.gram_at)
                ComparePattern(pattern, users, at - pattern.gram_at);
            for (const uint32_t user : users)
                wake = std::min(wake, CountsFrom(user));
        }
        if (wake <= offset_ + at)
            return false;
        is_idle_[begin] = true;
        if (wake != kNever)
            wakes_.emplace(wake, begin);
        return true;
    }

    void Wake(uint64_t offset) {
        for (; !wakes_.empty() && wakes_.top().first <= offset; wakes_.pop())
            is_idle_[wakes_.top().second] = false;
    }

    // The first start in the file that may matter for the string.
    uint64_t CountsFrom(uint32_t string) const {
        const uint32_t place = places_[string];
        return place == kSettled ? kNever : place == kUnknown ? 0 : starts_[place - kFirstStarts].first;
    }

    void ComparePattern(const Pattern &pattern, std::span<const uint32_t> users, std::size_t start) {
        if (piece_.size() - start < pattern.length)
            return; // the next piece has it whole
        // Bytes are compared only where it matters: a hostile file repeats them.
        const auto matters = [&](uint32_t user) { return CountsFrom(user) <= offset_ + start; };
        const uint8_t *value = pass_.bytes_.data() + pattern.bytes;
        if (std::ranges::none_of(users, matters) ||
            !IsPatternAt(&piece_[start], value, value + pattern.length, pattern.length))
            return;
        for (const uint32_t user : users)
            if (places_[user] != kSettled)
                Judge(user, offset_ + start, pattern.length);
    }

    // The string's bytes are at `start` in the file. Starts come in ascending order.
    void Judge(uint32_t string, uint64_t start, uint64_t length) {
        uint32_t &place = places_[string];
        if (place == kUnknown) {
            const base::Region region = region_(*pass_.strings_[string]);
            const Starts starts = CountingStarts(*pass_.strings_[string], length, region.length);
            starts_.push_back({region.offset + starts.first, region.offset + starts.end});
            place = kFirstStarts + static_cast<uint32_t>(starts_.size() - 1);
        }
        const Starts starts = starts_[place - kFirstStarts];
        if (starts.IsEmpty() || start >= starts.first) {
            found_[string] = start >= starts.first && start < starts.end;
            place = kSettled;
        }
    }

    const StringPass &pass_;
    const RegionOf &region_;
    std::span<const uint8_t> piece_;
    uint64_t offset_ = 0; // of the piece in the file
    std::vector<bool> found_;
    std::vector<uint32_t> places_;
    std::vector<Starts> starts_; // in the file
    std::vector<bool> is_idle_;  // by a gram's first entry
    std::priority_queue<Waking, std::vector<Waking>, std::greater<>> wakes_;
};

std::vector<bool> StringPass::Search(base::FileBytes &bytes, const RegionOf &region) const {
    Run run(*this, region);
    bytes.ForPieces({0, bytes.size()}, kLongestPattern - 1, [&](std::span<const uint8_t> piece, uint64_t offset) {
        run.SearchPiece(piece, offset);
        return true;
    });
    std::vector<bool> found = run.TakeFound();
    for (const uint32_t string : without_)
        found[string] = IsStringPresent(bytes, region(*strings_[string]), *strings_[string]);
    return found;
}

std::size_t StringPass::LargestBucket() const {
    std::unordered_map<uint32_t, std::size_t> counts;
    std::size_t largest = 0;
    for (const Entry &entry : entries_)
        largest = std::max(largest, ++counts[entry.gram]);
    return largest;
}

std::size_t StringPass::MemorySize() const {
    const auto size = [](const auto &list) { return list.capacity() * sizeof(list[0]); };
    return size(strings_) + size(bytes_) + size(patterns_) + size(users_) + size(without_) + size(filter_) +
           size(buckets_) + size(entries_);
}

} // namespace tavrik::evaluation
