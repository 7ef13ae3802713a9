#include "evaluation/string_pass.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <optional>
#include <tuple>
#include <unordered_map>

#include "evaluation/string_pattern.h"
#include "evaluation/string_search.h"

namespace tavrik::evaluation {

namespace {

// Windows are used unless more than one of so many strings has none.
constexpr std::size_t kWithoutWindows = 8;

} // namespace

StringPass::StringPass(std::span<const StringFeature *const> strings) : strings_(strings.begin(), strings.end()) {
    // Strings of the same bytes share a pattern.
    std::map<std::string, std::vector<uint32_t>> users;
    KeyChooser chooser;
    std::size_t with_windows = 0;
    for (uint32_t i = 0; i < strings_.size(); ++i) {
        const StringPattern pattern(*strings_[i]);
        std::string bytes(reinterpret_cast<const char *>(pattern.value.data()), pattern.length);
        bytes.append(reinterpret_cast<const char *>(pattern.care.data()), pattern.length);
        std::vector<uint32_t> &of_pattern = users[std::move(bytes)];
        of_pattern.push_back(i);
        if (of_pattern.size() == 1) {
            chooser.Add(pattern);
            with_windows += KeyChooser::HasWindows(pattern) ? 1U : 0U;
        }
    }
    // Where many strings have none, looking for windows and for grams takes longer than looking for grams only.
    uses_windows_ = (users.size() - with_windows) * kWithoutWindows <= users.size();
    for (const auto &[bytes, of_pattern] : users)
        AddPattern(StringPattern(*strings_[of_pattern.front()]), of_pattern, chooser);
    by_gram_.Sort();
    by_window_.Sort();
    if (!by_gram_.entries.empty())
        grams_ = std::make_unique<const GramSearch>(by_gram_.Keys());
    if (!by_window_.entries.empty())
        windows_ = std::make_unique<const WindowSearch>(by_window_.Keys());
}

void StringPass::AddPattern(const StringPattern &pattern, std::span<const uint32_t> users, KeyChooser &chooser) {
    uint32_t place = 0;
    const auto add = [&](Table &table, uint32_t key, std::size_t at, const Check &check) {
        table.entries.push_back({key, check.folded, place, static_cast<uint8_t>(at), static_cast<uint8_t>(check.at),
                                 check.bytes, static_cast<uint8_t>(pattern.length - 1)});
    };
    if (const std::optional<AlignedWindows> windows = uses_windows_ ? chooser.ChooseWindows(pattern) : std::nullopt) {
        place = StorePattern(pattern, users);
        for (const std::size_t at : *windows)
            add(by_window_, WindowAt(&pattern.value[at]), at, ChooseCheck(pattern, at, kWindowBytes));
        return;
    }
    const std::optional<Gram> gram = chooser.ChooseGram(pattern);
    if (!gram) {
        without_.insert(without_.end(), users.begin(), users.end());
        return;
    }
    place = StorePattern(pattern, users);
    const Check check = ChooseCheck(pattern, gram->at, kGramBytes);
    if (gram->open < 0)
        return add(by_gram_, gram->folded, gram->at, check);
    for (uint32_t byte = 0; byte <= UINT8_MAX; ++byte)
        if ((byte & kCaseBit) != 0)
            add(by_gram_, gram->folded | byte << 8 * gram->open, gram->at, check);
}

// Returns the pattern's place in pool_.
uint32_t StringPass::StorePattern(const StringPattern &pattern, std::span<const uint32_t> users) {
    const Pattern record = {pattern_count_++, static_cast<uint32_t>(users_.size()),
                            static_cast<uint32_t>(users.size())};
    const auto place = static_cast<uint32_t>(pool_.size());
    pool_.resize(pool_.size() + sizeof(record) + 2 * pattern.length);
    uint8_t *const to = &pool_[place];
    std::memcpy(to, &record, sizeof(record));
    std::memcpy(to + sizeof(record), pattern.value.data(), pattern.length);
    std::memcpy(to + sizeof(record) + pattern.length, pattern.care.data(), pattern.length);
    users_.insert(users_.end(), users.begin(), users.end());
    return place;
}

void StringPass::Table::Sort() {
    // As many buckets as entries, or up to twice as many.
    bucket_shift = 32U - static_cast<unsigned>(std::bit_width(entries.size() | 1));
    std::ranges::sort(entries, {}, [](const Entry &entry) { return std::tuple(KeyHash(entry.gram), entry.pattern); });
    entries.shrink_to_fit();
    buckets.resize((std::size_t{UINT32_MAX} >> bucket_shift) + 2);
    for (const Entry &entry : entries) {
        const uint32_t hash = KeyHash(entry.gram);
        ++buckets[(hash >> bucket_shift) + 1].first;
        buckets[hash >> bucket_shift].next_bits |= 1U << NextBits(hash);
    }
    for (std::size_t i = 1; i < buckets.size(); ++i)
        buckets[i].first += buckets[i - 1].first;
}

std::vector<uint32_t> StringPass::Table::Keys() const {
    std::vector<uint32_t> keys;
    for (const Entry &entry : entries)
        keys.push_back(entry.gram);
    return keys;
}

StringPass::Pattern StringPass::PatternOf(const Entry &entry) const {
    Pattern pattern;
    std::memcpy(&pattern, &pool_[entry.pattern], sizeof(pattern));
    return pattern;
}

// One search.
class StringPass::Run {
public:
    Run(const StringPass &pass, const RegionOf &region)
        : pass_(pass), region_(region), saw_zeros_(pass.grams_ != nullptr), found_(pass.strings_.size()),
          places_(pass.strings_.size()), was_judged_(pass.pattern_count_) {}

    void SearchPiece(std::span<const uint8_t> piece, uint64_t offset) {
        piece_ = piece;
        offset_ = offset;
        std::size_t at = 0;
        while (piece.size() - at >= GramSearch::kStride + kReadAfter) {
            const std::size_t whole = (piece.size() - at - kReadAfter) / GramSearch::kStride * GramSearch::kStride;
            const std::size_t size = std::min(whole, BlockSize(offset_ + at));
            SearchBlock(piece.data() + at, size, at);
            at += size;
        }
        // The last bytes may begin grams that end after them.
        uint8_t tail[2 * GramSearch::kStride + kReadAfter] = {};
        std::memcpy(tail, piece.data() + at, piece.size() - at);
        SearchBlock(tail, 2 * GramSearch::kStride, at);
    }

    std::vector<bool> TakeFound() { return std::move(found_); }

private:
    // What is known of a string: nothing, that it needs no more looking at, or (from kFirstStarts on) where it counts.
    static constexpr uint32_t kUnknown = 0;
    static constexpr uint32_t kSettled = 1;
    static constexpr uint32_t kFirstStarts = 2;

    static constexpr uint64_t kNever = UINT64_MAX;

    // A gram in the block, and the entries of its bucket.
    struct Hit {
        uint32_t gram;
        uint32_t at; // in the block
        uint32_t first;
        uint32_t end;
    };

    // An entry whose gram and check are in the block.
    struct Match {
        uint32_t entry;
        uint32_t at; // of the gram, in the block
    };

    // What is known of zero bytes counts from the next block on, so that blocks are short while they matter.
    std::size_t BlockSize(uint64_t offset) const {
        const bool will_matter = zeros_needed_from_ != 0 && zeros_needed_from_ < offset + GramSearch::kLongestBlock;
        return saw_zeros_ || will_matter ? kShortBlock : GramSearch::kLongestBlock;
    }

    // Searches a block, the bytes of the piece at `at`; some after it are read too. It goes in steps over many grams
    // each, so that what one gram needs from memory is fetched while others are looked at.
    void SearchBlock(const uint8_t *block, std::size_t size, std::size_t at) {
        block_at_ = at;
        saw_zeros_ = false;
        const bool is_run = std::memcmp(block, block + 1, size + kReadAfter - 1) == 0;
        if (pass_.grams_ != nullptr)
            SearchGrams(block, size, is_run);
        // No window repeats one byte.
        if (pass_.windows_ != nullptr && !is_run)
            Compare(block, pass_.windows_->Find({block, size}, places_of_grams_), pass_.by_window_, WindowAt);
    }

    void SearchGrams(const uint8_t *block, std::size_t size, bool is_run) {
        const uint64_t end = offset_ + block_at_ + size;
        if (is_run && NeededFrom(block) >= end)
            return;
        constexpr uint8_t kZeros[kGramBytes] = {};
        if (zeros_needed_from_ < end)
            zeros_needed_from_ = NeededFrom(kZeros);
        const std::size_t count = pass_.grams_->Find({block, size}, zeros_needed_from_ >= end, places_of_grams_);
        Compare(block, count, pass_.by_gram_, [this](const uint8_t *bytes) {
            const uint32_t gram = GramAt(bytes);
            saw_zeros_ |= gram == kGramFold;
            return gram;
        });
    }

    template <typename KeyAt>
    void Compare(const uint8_t *block, std::size_t count, const Table &table, KeyAt key_at) {
        for (std::size_t first = 0; first < count; first += kHits)
            CompareSome(block, std::span(places_of_grams_).subspan(first, std::min(kHits, count - first)), table,
                        key_at);
    }

    template <typename KeyAt>
    void CompareSome(const uint8_t *block, std::span<const uint16_t> places, const Table &table, KeyAt key_at) {
        // Grams that are none are dropped without a branch that the file decides.
        std::size_t hits = 0;
        for (const uint16_t at : places) {
            const uint32_t gram = key_at(block + at);
            const Bucket *const bucket = table.BucketOf(KeyHash(gram));
            hits_[hits] = {gram, at, bucket[0].first, bucket[1].first};
            hits += bucket->next_bits >> table.NextBits(KeyHash(gram)) & 1U;
        }
        for (std::size_t i = 0; i < hits; ++i)
            __builtin_prefetch(&table.entries[hits_[i].first]);
        std::size_t matches = 0;
        for (std::size_t i = 0; i < hits; ++i) {
            const Hit hit = hits_[i];
            for (uint32_t place = hit.first; place < hit.end; ++place) {
                matches_[matches] = {place, hit.at};
                matches += MayBeAt(table.entries[place], hit, block);
                if (matches == kHits) {
                    CompareMatches(matches, table);
                    matches = 0;
                }
            }
        }
        CompareMatches(matches, table);
    }

    // 1 when the entry's gram and check are there and its pattern would be whole in the piece (what is not is in its
    // neighbour), else 0; without branches.
    unsigned MayBeAt(const Entry &entry, const Hit &hit, const uint8_t *block) const {
        const std::size_t at = block_at_ + hit.at;
        const std::size_t start = at - entry.gram_at; // wraps before the piece
        const bool is_whole = (at >= entry.gram_at) & (start + entry.last < piece_.size());
        // A pattern too short for a check may be followed by less than a check.
        const bool can_read = is_whole & (start + entry.check_at + kGramBytes <= piece_.size());
        const uint8_t *const from = can_read ? piece_.data() + start + entry.check_at : block;
        const uint32_t bytes = GramAt(from) & kCheckMasks[entry.check_bytes];
        return static_cast<unsigned>(is_whole & (entry.gram == hit.gram) & (bytes == entry.check));
    }

    void CompareMatches(std::size_t count, const Table &table) {
        for (std::size_t i = 0; i < count; ++i)
            __builtin_prefetch(&pass_.pool_[table.entries[matches_[i].entry].pattern]);
        for (std::size_t i = 0; i < count; ++i)
            ComparePattern(table.entries[matches_[i].entry], block_at_ + matches_[i].at);
    }

    void ComparePattern(const Entry &entry, std::size_t gram_at) {
        const Pattern pattern = pass_.PatternOf(entry);
        const std::span users(pass_.users_.data() + pattern.first_user, pattern.user_count);
        // Bytes are compared only where it matters: a hostile file repeats them.
        if (was_judged_[pattern.number] && NeededFrom(users) > offset_ + gram_at)
            return;
        const std::size_t start = gram_at - entry.gram_at;
        const std::size_t length = std::size_t{entry.last} + 1;
        const uint8_t *const value = &pass_.pool_[entry.pattern + sizeof(pattern)];
        if (!IsPatternAt(&piece_[start], value, value + length, length))
            return;
        was_judged_[pattern.number] = true;
        for (const uint32_t user : users)
            if (places_[user] != kSettled)
                Judge(user, offset_ + start, length);
    }

    // The first start in the file that may matter for one of the strings.
    uint64_t NeededFrom(std::span<const uint32_t> users) const {
        uint64_t first = kNever;
        for (const uint32_t user : users) {
            const uint32_t place = places_[user];
            if (place != kSettled)
                first = std::min(first, place == kUnknown ? 0 : starts_[place - kFirstStarts].first);
        }
        return first;
    }

    // The first place in the file at which the gram of these bytes may matter.
    uint64_t NeededFrom(const uint8_t *bytes) const {
        uint64_t from = kNever;
        const uint32_t gram = GramAt(bytes);
        const Bucket *const bucket = pass_.by_gram_.BucketOf(KeyHash(gram));
        for (uint32_t place = bucket[0].first; place < bucket[1].first; ++place) {
            const Entry &entry = pass_.by_gram_.entries[place];
            const Pattern pattern = pass_.PatternOf(entry);
            const std::size_t length = std::size_t{entry.last} + 1;
            const uint8_t *const value = &pass_.pool_[entry.pattern + sizeof(pattern) + entry.gram_at];
            // Grams of other bytes may have the same number.
            if (entry.gram != gram ||
                !IsPatternAt(bytes, value, value + length, std::min(kGramBytes, length - entry.gram_at)))
                continue;
            if (!was_judged_[pattern.number])
                return 0;
            from = std::min(from, NeededFrom(std::span(&pass_.users_[pattern.first_user], pattern.user_count)));
        }
        return from;
    }

    // The string's bytes are at `start` in the file. Starts come almost in ascending order: one that comes later is not
    // less by as much as the longest pattern.
    void Judge(uint32_t string, uint64_t start, uint64_t length) {
        uint32_t &place = places_[string];
        if (place == kUnknown) {
            const base::Region region = region_(*pass_.strings_[string]);
            const Starts starts = CountingStarts(*pass_.strings_[string], length, region.length);
            starts_.push_back({region.offset + starts.first, region.offset + starts.end});
            place = kFirstStarts + static_cast<uint32_t>(starts_.size() - 1);
        }
        const Starts starts = starts_[place - kFirstStarts];
        const bool counts = start >= starts.first && start < starts.end;
        if (counts || starts.IsEmpty() || start >= starts.end + kLongestPattern) {
            found_[string] = counts;
            place = kSettled;
        }
    }

    static constexpr std::size_t kReadAfter = std::max(GramSearch::kReadAfter, WindowSearch::kReadAfter);

    static constexpr std::size_t kHits = 256;

    static constexpr std::size_t kShortBlock = 256;

    const StringPass &pass_;
    const RegionOf &region_;
    std::span<const uint8_t> piece_;
    uint64_t offset_ = 0;            // of the piece in the file
    std::size_t block_at_ = 0;       // in the piece
    uint64_t zeros_needed_from_ = 0; // places before it need no look at zero bytes
    bool saw_zeros_;                 // in the last block, where they matter
    std::vector<bool> found_;
    std::vector<uint32_t> places_;
    std::vector<Starts> starts_;   // in the file
    std::vector<bool> was_judged_; // by pattern: something is known of its strings
    GramSearch::Places places_of_grams_;
    std::array<Hit, kHits> hits_;
    std::array<Match, kHits> matches_;
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
    for (const Entry &entry : by_gram_.entries)
        largest = std::max(largest, ++counts[entry.gram]);
    return largest;
}

std::size_t StringPass::MemorySize() const {
    const auto size = [](const auto &list) { return list.capacity() * sizeof(list[0]); };
    std::size_t sum = size(strings_) + size(pool_) + size(users_) + size(without_);
    for (const Table *table : {&by_gram_, &by_window_})
        sum += size(table->buckets) + size(table->entries);
    return sum + (grams_ ? grams_->MemorySize() : 0) + (windows_ ? windows_->MemorySize() : 0);
}

} // namespace tavrik::evaluation
