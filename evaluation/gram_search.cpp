#include "evaluation/gram_search.h"

#include <algorithm>
#include <bit>

#include "evaluation/gram_hash.h"

namespace tavrik::evaluation {

namespace {

constexpr std::size_t kBitsPerGram = 64;
constexpr std::size_t kLeastBits = 4096;
constexpr std::size_t kMostBits = std::size_t{1} << 21; // 256 KiB, to stay in a second-level cache

bool IsZero(const uint8_t *bytes) {
    uint32_t value;
    std::memcpy(&value, bytes, sizeof(value));
    return value == 0;
}

} // namespace

GramSearch::GramSearch(std::span<const uint32_t> grams) {
    const std::size_t bits = std::clamp(std::bit_ceil(grams.size() * kBitsPerGram), kLeastBits, kMostBits);
    shift_ = 32U - static_cast<unsigned>(std::countr_zero(bits));
    words_.resize(bits / 32);
    for (const uint32_t gram : grams)
        words_[PlaceOf(gram) / 32] |= uint32_t{1} << PlaceOf(gram) % 32;
}

uint32_t GramSearch::PlaceOf(uint32_t gram) const {
    return gram * kGramMultiplier >> shift_;
}

std::size_t GramSearch::FindPortably(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    std::size_t count = 0;
    for (std::size_t at = 0; at < block.size(); ++at) {
        // Written always and kept by need: no branch depends on the file.
        places[count] = static_cast<uint16_t>(at);
        const uint32_t place = PlaceOf(GramAt(block.data() + at));
        count +=
            words_[place / 32] >> place % 32 & ~static_cast<uint32_t>(skips_zeros & IsZero(block.data() + at)) & 1U;
    }
    return count;
}

std::size_t GramSearch::Find(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    return IsWide() ? FindWidely(block, skips_zeros, places) : FindPortably(block, skips_zeros, places);
}

} // namespace tavrik::evaluation
