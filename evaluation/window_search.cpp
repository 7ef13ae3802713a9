#include "evaluation/window_search.h"

#include <algorithm>
#include <bit>

namespace tavrik::evaluation {

namespace {

constexpr std::size_t kBitsPerWindow = 32;
constexpr std::size_t kLeastWindowBits = 4096;
constexpr std::size_t kMostWindowBits = std::size_t{1} << 21; // 256 KiB, to stay in a second-level cache

} // namespace

WindowSearch::WindowSearch(std::span<const uint32_t> windows) {
    const std::size_t bits =
        std::clamp(std::bit_ceil(windows.size() * kBitsPerWindow), kLeastWindowBits, kMostWindowBits);
    shift_ = 32U - static_cast<unsigned>(std::countr_zero(bits));
    words_.resize(bits / 32);
    for (const uint32_t window : windows)
        words_[(window >> shift_) / 32] |= uint32_t{1} << (window >> shift_) % 32;
}

std::size_t WindowSearch::FindPortably(std::span<const uint8_t> block, GramSearch::Places &places) const {
    std::size_t count = 0;
    for (std::size_t at = 0; at < block.size(); at += kWindowStep) {
        // Written always and kept by need: no branch depends on the file.
        places[count] = static_cast<uint16_t>(at);
        const uint32_t place = WindowAt(block.data() + at) >> shift_;
        count += words_[place / 32] >> place % 32 & 1U;
    }
    return count;
}

std::size_t WindowSearch::Find(std::span<const uint8_t> block, GramSearch::Places &places) const {
    return GramSearch::IsWide() ? FindWidely(block, places) : FindPortably(block, places);
}

} // namespace tavrik::evaluation
