// The searches for grams and for windows in 32 bytes at a time, by AVX2, where the processor has it. MinGW does not
// align the stack for these instructions, so that the Windows build goes without.

#include "evaluation/gram_search.h"
#include "evaluation/window_search.h"

#if defined(__x86_64__) && !defined(_WIN32)
#include <bit>
#include <immintrin.h>

#include "evaluation/gram_hash.h"
#endif

namespace tavrik::evaluation {

#if defined(__x86_64__) && !defined(_WIN32)

#define TAVRIK_AVX2 __attribute__((target("avx2")))

namespace {

constexpr unsigned kLanes = 8; // grams in a register

// A filter's words, and the shift from a hash to its bit.
struct WideFilter {
    const int *words;
    __m128i shift;
};

TAVRIK_AVX2 inline WideFilter FilterOf(const std::vector<uint32_t> &words, unsigned shift) {
    return {reinterpret_cast<const int *>(words.data()), _mm_cvtsi32_si128(static_cast<int>(shift))};
}

// The hash of the eight grams that begin at every fourth byte, by a multiplier.
TAVRIK_AVX2 inline __m256i Hashes(__m256i grams, uint32_t multiplier) {
    const __m256i folded = _mm256_or_si256(grams, _mm256_set1_epi32(static_cast<int>(kGramFold)));
    return _mm256_mullo_epi32(folded, _mm256_set1_epi32(static_cast<int>(multiplier)));
}

TAVRIK_AVX2 inline __m256i GramsAt(const uint8_t *bytes) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(bytes));
}

// The filter's bit of each hash, as the uppermost bit of its lane.
TAVRIK_AVX2 inline __m256i BitsOf(const WideFilter &filter, __m256i hashes) {
    const __m256i places = _mm256_srl_epi32(hashes, filter.shift);
    const __m256i words = _mm256_i32gather_epi32(filter.words, _mm256_srli_epi32(places, 5), 4);
    return _mm256_sllv_epi32(words, _mm256_andnot_si256(places, _mm256_set1_epi32(31)));
}

TAVRIK_AVX2 inline uint32_t UppermostBits(__m256i lanes) {
    return static_cast<uint8_t>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

// A bit for each of the eight grams that begin at every fourth byte: whether the filter may hold it.
TAVRIK_AVX2 inline uint32_t MayHold(const WideFilter &filter, const uint8_t *bytes, __m256i skips_zeros) {
    const __m256i grams = GramsAt(bytes);
    const __m256i bits = BitsOf(filter, Hashes(grams, kGramMultiplier));
    const __m256i is_skipped = _mm256_and_si256(_mm256_cmpeq_epi32(grams, _mm256_setzero_si256()), skips_zeros);
    return UppermostBits(_mm256_andnot_si256(is_skipped, bits));
}

// The same for windows.
TAVRIK_AVX2 inline uint32_t MayHoldWindow(const WideFilter &filter, const uint8_t *bytes) {
    return UppermostBits(BitsOf(filter, _mm256_add_epi32(Hashes(GramsAt(bytes), kGramMultiplier),
                                                         Hashes(GramsAt(bytes + kGramBytes), kSecondMultiplier))));
}

// The strides with a hit are gathered first, so that no branch depends on the file.
struct Stride {
    uint32_t mask; // a byte for each offset from a multiple of four, a bit in it for each lane
    uint32_t at;
};

using Strides = std::array<Stride, GramSearch::kLongestBlock / GramSearch::kStride + 1>;

std::size_t PlacesOf(std::span<const Stride> strides, GramSearch::Places &places) {
    std::size_t count = 0;
    for (const Stride &stride : strides)
        for (uint32_t mask = stride.mask; mask != 0; mask &= mask - 1) {
            const auto bit = static_cast<unsigned>(std::countr_zero(mask));
            places[count++] = static_cast<uint16_t>(stride.at + bit % kLanes * kGramBytes + bit / kLanes);
        }
    return count;
}

} // namespace

TAVRIK_AVX2 std::size_t GramSearch::FindWidely(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    const WideFilter filter = FilterOf(words_, shift_);
    const __m256i skipped = _mm256_set1_epi32(skips_zeros ? -1 : 0);
    Strides strides;
    std::size_t hits = 0;
    for (std::size_t at = 0; at < block.size(); at += kStride) {
        uint32_t mask = 0;
        for (unsigned offset = 0; offset < kGramBytes; ++offset)
            mask |= MayHold(filter, block.data() + at + offset, skipped) << kLanes * offset;
        strides[hits] = {mask, static_cast<uint32_t>(at)};
        hits += mask != 0 ? 1U : 0U;
    }
    return PlacesOf(std::span(strides).first(hits), places);
}

TAVRIK_AVX2 std::size_t WindowSearch::FindWidely(std::span<const uint8_t> block, GramSearch::Places &places) const {
    const WideFilter filter = FilterOf(words_, shift_);
    Strides strides;
    std::size_t hits = 0;
    for (std::size_t at = 0; at < block.size(); at += GramSearch::kStride) {
        const uint32_t mask = MayHoldWindow(filter, block.data() + at);
        strides[hits] = {mask, static_cast<uint32_t>(at)};
        hits += mask != 0 ? 1U : 0U;
    }
    return PlacesOf(std::span(strides).first(hits), places);
}

bool GramSearch::IsWide() {
    static const bool is_wide = __builtin_cpu_supports("avx2") != 0;
    return is_wide;
}

#else

std::size_t GramSearch::FindWidely(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    return FindPortably(block, skips_zeros, places);
}

std::size_t WindowSearch::FindWidely(std::span<const uint8_t> block, GramSearch::Places &places) const {
    return FindPortably(block, places);
}

bool GramSearch::IsWide() {
    return false;
}

#endif

} // namespace tavrik::evaluation
